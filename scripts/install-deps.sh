#!/usr/bin/env bash
# Installs the Debian packages that are missing, and only those:
#   scripts/install-deps.sh          what building and running need (./run.sh)
#   scripts/install-deps.sh --tests  that and what the tests need besides (./test.sh): the
#                                    references (ngspice, scipy), the LV2 tools, an X server for
#                                    the editor's tests, Ardour, clang and libFuzzer, benchmarks.
# The Windows builds and their wine runs install their own (scripts/install-windows-deps.sh).
set -euo pipefail
BASE=(build-essential cmake pkg-config ccache
  libboost-dev libboost-graph-dev libboost-iostreams-dev libpugixml-dev libeigen3-dev libsndfile1-dev
  libgtest-dev lv2-dev libcairo2-dev fonts-dejavu-core libx11-dev libstb-dev)
TESTS=(libbenchmark-dev ngspice python3-numpy python3-scipy
  sordi lilv-utils liblilv-dev xvfb xdotool python3-cairo imagemagick
  ardour clang-14 libclang-rt-14-dev
  qtractor jalv jackd2 x11-utils)
PACKAGES=("${BASE[@]}")
case "${1:-}" in
  --tests) PACKAGES+=("${TESTS[@]}") ;;
  "") ;;
  *) echo "usage: $0 [--tests]" >&2; exit 2 ;;
esac
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" != "0" ]; then SUDO="sudo"; fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
