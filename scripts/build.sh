#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [cmake options...]
set -euo pipefail
dir="$1"; shift
cmake -S "$(dirname "$0")/.." -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
