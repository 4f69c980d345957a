#!/usr/bin/env bash
# Installs what building and running need (only what is missing), makes the release build,
# copies the plug-ins into the user's folders (Kelm.so and KelmCircuit.so into ~/.vst, kelm.lv2
# into ~/.lv2, Kelm.clap into ~/.clap),
# and renders a musical test signal through the built-in default.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
scripts/build.sh build
cmake --build build --target kelm_install_user >/dev/null
echo "Kelm.so and KelmCircuit.so are in ~/.vst, kelm.lv2 in ~/.lv2, Kelm.clap in ~/.clap."
mkdir -p out
build/kelm signal --out out/test-signal.wav --seconds 4
if build/kelm info >/dev/null 2>&1; then
  build/kelm info | head -1
  build/kelm render --in out/test-signal.wav --out out/preamp.wav
  echo "Listen to out/preamp.wav (the built-in preamp at its default settings); the plug-in is build/Kelm.so."
else
  build/kelm render --system examples/dsp-demo.xml --in out/test-signal.wav --out out/dsp-demo.wav
  echo "Listen to out/dsp-demo.wav (examples/dsp-demo.xml)."
fi
