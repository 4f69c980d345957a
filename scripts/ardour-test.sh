#!/usr/bin/env bash
# The plug-in in a real host: Ardour 7 headless (ardour7-lua, dummy backend) loads the built
# Kelm.so, lists its nine parameters, sets four, and exports a test signal; the export must
# equal `kelm render` of the same input after the silent lead-in, within the circuit path's
# solver noise (scripts/ardour/compare.py). Ardour 7.3 sometimes dies of its own heap
# corruption around the export (see below): that alone is tolerated, judged by the exported
# file. Usage: scripts/ardour-test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
here="$(pwd)/scripts/ardour"
work="$(mktemp -d /tmp/kelm-ardour.XXXXXX)"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home"  # Ardour's scan cache, scripts and presets stay in here
mkdir -p "$HOME/.config/ardour7/scripts" "$HOME/.config/ardour7/export" "$work/vst"
echo "Ardour host test in $work"

cp "$build/Kelm.so" "$work/vst/"
# Ardour trusts its scan cache only for a file older than the cache entry.
touch -d @$(( $(date +%s) - 60 )) "$work/vst/Kelm.so"
id=$(LD_LIBRARY_PATH=/usr/lib/ardour7 /usr/lib/ardour7/ardour-vst-scanner -v -f "$work/vst/Kelm.so" 2>&1 |
     sed -n 's/.*<VST2Info id="\([0-9]*\)".*/\1/p' | head -n 1)
[ -n "$id" ] || { echo "the VST scanner found no plug-in in Kelm.so" >&2; exit 1; }

frames=144000  # 1 s of silence, 2 s of notes, at 48 kHz
python3 "$here/make_input.py" "$work/in.wav"
sed "s|@FILE@|$work/in.wav|" "$here/kelm_file_player.lua" > "$HOME/.config/ardour7/scripts/kelm_file_player.lua"
preset=6b1e3f0a-4c2d-4e8f-9a10-6b656c6d0001
sed -e "s/ExportPreset id=\"[^\"]*\"/ExportPreset id=\"$preset\"/" \
    -e 's/ExportFormat id="[^"]*"/ExportFormat id="20b4ab09-6452-4cb3-bd66-b921cdbd2942"/' \
    /usr/share/ardour7/export/wav.preset > "$HOME/.config/ardour7/export/kelm-test.preset"
sed -e "s|@ID@|$id|" -e "s|@DIR@|$work|" -e "s|@FRAMES@|$frames|" -e "s|@PRESET@|$preset|" \
    "$here/session.lua" > "$work/session.lua"

# Ardour 7.3's heap is corrupted now and then around its export, with any plug-in (a trivial
# gain plug-in dies as often, about one run in four here), and glibc then stops it at the next
# free() ("corrupted size vs. prev_size", "free(): invalid next size", "double free or
# corruption"), or it dies of SIGSEGV; mostly while closing the session, now and then before
# the exported file is complete. Such a death (134 SIGABRT, 139 SIGSEGV) is tolerated and the
# exported file judged: it must hold every frame and equal kelm's render below. When it came
# before the file was complete, Ardour is run again, three times at most. Any other failure
# ends the test.
for attempt in 1 2 3; do
  status=0
  rm -rf "$work/ardour-out.wav" "$work/session"
  LXVST_PATH="$work/vst" timeout 600 ardour7-lua "$work/session.lua" > "$work/ardour.log" 2>&1 || status=$?
  [ $status -eq 0 ] && break
  if [ $status -ne 134 ] && [ $status -ne 139 ]; then
    cat "$work/ardour.log"
    echo "ardour7-lua failed with status $status" >&2
    exit 1
  fi
  written=$(python3 "$here/compare.py" --frames "$work/ardour-out.wav")
  echo "ardour7-lua died with status $status ($(grep -E -m1 'corrupt|free\(\)' "$work/ardour.log" || echo 'no message')); $written of $frames frames exported"
  [ "$written" -ge "$frames" ] && break
done
names=$(sed -n 's/^parameter [0-9]* //p' "$work/ardour.log" | tr '\n' ' ')
expected="Input Gain Vol Oversampling Bass Treble EQ_Position Stereo CPU "
if ! grep -q "^parameters 9$" "$work/ardour.log" || [ "$names" != "$expected" ]; then
  cat "$work/ardour.log"
  echo "Ardour lists the parameters as: $names" >&2
  exit 1
fi
if [ $status -eq 0 ] && ! grep -q "^export true" "$work/ardour.log"; then
  cat "$work/ardour.log"; echo "the export failed" >&2; exit 1
fi
[ -s "$work/ardour-out.wav" ] || { cat "$work/ardour.log"; echo "Ardour wrote no export" >&2; exit 1; }
echo "Ardour loaded Kelm (id $id) with its nine parameters: $names"

"$build/kelm" render --in "$work/in.wav" --out "$work/kelm-out.wav" --set CPU=0 --set Oversampling=1 \
    --set Gain=0.8 --set Bass=0.3 > /dev/null
python3 "$here/compare.py" "$work/ardour-out.wav" "$work/kelm-out.wav" 48000 "$frames"
echo "Ardour's export equals kelm render within the solver noise"
