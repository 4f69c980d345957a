#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [cmake options...]
# The compiler's output goes to DIR/build.log and is shown only when the build fails.
set -euo pipefail
dir="$1"; shift
mkdir -p "$dir"
echo "building $dir ..."
if ! { cmake -S "$(dirname "$0")/.." -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" && cmake --build "$dir" -j"$(nproc)"; } > "$dir/build.log" 2>&1; then
  cat "$dir/build.log"
  echo "build of $dir failed" >&2
  exit 1
fi
