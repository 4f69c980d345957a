#!/usr/bin/env bash
# Builds the Windows plug-in and our Windows test programs with mingw-w64:
#   build-win32/Kelm.dll (PE32, i386) and build-win64/Kelm.dll (PE32+, x86-64),
#   each with KelmHost.exe and KelmProbe.dll beside it.
# Installs what is missing first. Needs the Linux build tree (build/, made by
# scripts/build.sh build), whose generated built-in document and tables are compiled in.
# Usage: scripts/build-windows.sh [32|64]...   (both when none is given)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
scripts/install-windows-deps.sh
if [ ! -f build/generated/BuiltInData.cpp ]; then
  cmake --build build --target kelm_builtin > /dev/null
fi
widths=("$@")
[ ${#widths[@]} -eq 0 ] && widths=(32 64)
for width in "${widths[@]}"; do
  case "$width" in
    32) toolchain=cmake/toolchain-mingw-i686.cmake ;;
    64) toolchain=cmake/toolchain-mingw-x86_64.cmake ;;
    *) echo "unknown width $width (32 or 64)" >&2; exit 1 ;;
  esac
  scripts/build.sh "build-win$width" -DCMAKE_TOOLCHAIN_FILE="$root/$toolchain"
done
