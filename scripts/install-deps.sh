#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only when some are missing.
set -euo pipefail
PACKAGES=(build-essential cmake pkg-config ccache
  libboost-dev libboost-graph-dev libboost-iostreams-dev libpugixml-dev libeigen3-dev libsndfile1-dev
  libgtest-dev libbenchmark-dev ngspice python3-numpy python3-scipy
  lv2-dev sordi lilv-utils liblilv-dev libcairo2-dev fonts-dejavu-core
  libx11-dev libstb-dev xvfb xdotool python3-cairo imagemagick
  ardour clang-14 libclang-rt-14-dev)
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
