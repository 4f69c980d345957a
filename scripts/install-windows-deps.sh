#!/usr/bin/env bash
# Installs what the Windows builds and their wine runs need, only what is missing:
# the mingw-w64 cross compilers (posix threads), wine64, wine32 (i386; through qemu-i386
# where the kernel runs no 32-bit programs), and the sources of pugixml from Debian's
# source package (it has no Windows package).
# Safe to repeat. Exits non-zero only when the 64-bit part cannot be installed; a
# wine32 that cannot be installed is reported loudly and the 32-bit runs then say so.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
SUDO=""
if [ "$(id -u)" != "0" ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

updated=0
update() {
  # One index of the mirror may be inconsistent; apt then fails for that index
  # only and keeps the others, so the exit status is not a verdict on its own.
  if [ $updated = 0 ]; then $SUDO apt-get update -qq >/dev/null 2>&1 || true; updated=1; fi
}

PACKAGES=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix binutils-mingw-w64 wine64 xvfb xdotool)
missing=()
for p in "${PACKAGES[@]}"; do installed "$p" || missing+=("$p"); done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  update
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null || exit 1
fi

# pugixml's sources through apt's own source-package download, from a private apt
# folder that holds only a deb-src entry for the same mirror and suite as the system's.
pugisrc="$root/third_party/pugixml"
if [ ! -f "$pugisrc/src/pugixml.cpp" ]; then
  aptdir="$root/third_party/apt"
  mkdir -p "$aptdir/lists/partial" "$aptdir/archives/partial" "$aptdir/sources.list.d" "$root/third_party/src"
  uri=$(grep -h -m1 -E '^URIs:.*debian/?$|^deb .*debian/? ' /etc/apt/sources.list.d/*.sources /etc/apt/sources.list 2>/dev/null |
        grep -o 'http[^ ]*' | head -1)
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  echo "deb-src ${uri:-http://deb.debian.org/debian} $suite main" > "$aptdir/sources.list"
  opts=(-o Dir::Etc::SourceList="$aptdir/sources.list" -o Dir::Etc::SourceParts="$aptdir/sources.list.d"
        -o Dir::State::Lists="$aptdir/lists" -o Dir::Cache::Archives="$aptdir/archives")
  echo "fetching the pugixml source package with apt-get source"
  apt-get "${opts[@]}" update -qq >/dev/null || exit 1
  (cd "$root/third_party/src" && apt-get "${opts[@]}" source --download-only -qq pugixml >/dev/null) || exit 1
  orig=$(ls "$root"/third_party/src/pugixml_*.orig.tar.* | head -1)
  rm -rf "$pugisrc" && mkdir -p "$pugisrc"
  tar -xf "$orig" -C "$pugisrc" --strip-components=1 || exit 1
fi

# A kernel that does not run 32-bit x86 programs itself (some virtual machines lack the
# compatibility mode) can still run them through qemu's user-mode emulator, registered with
# binfmt_misc for i386 programs ("F": the kernel holds the emulator open, so it works in any
# mount namespace). Slower, but wine32 then runs the 32-bit DLL.
if ! python3 "$root/scripts/runs_i386.py"; then
  installed qemu-user-static || { update; $SUDO apt-get install -y -qq --no-install-recommends qemu-user-static >/dev/null; }
  binfmt=/proc/sys/fs/binfmt_misc
  [ -e "$binfmt/register" ] || $SUDO mount -t binfmt_misc binfmt_misc "$binfmt" 2>/dev/null || true
  if [ -x /usr/bin/qemu-i386-static ] && [ -e "$binfmt/register" ] && [ ! -e "$binfmt/qemu-i386" ]; then
    printf '%s\n' ':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-i386-static:F' |
      $SUDO tee "$binfmt/register" >/dev/null || true
  fi
  if python3 "$root/scripts/runs_i386.py"; then
    echo "NOTE: this kernel runs 32-bit x86 programs only through qemu-i386 (user-mode emulation):"
    echo "wine32 and the 32-bit DLL's runs are slow here (about a minute per wine start)."
  fi
fi

# wine32: the i386 architecture, then the package, with the shared libraries pinned
# where the i386 index lags behind the amd64 one (see scripts/wine32_pins.py).
if ! python3 "$root/scripts/runs_i386.py"; then
  echo "************************************************************************"
  echo "NOTE: this kernel does not run 32-bit x86 programs: wine32 would not run"
  echo "here, and this step does not install it. The 32-bit DLL is built; its wine runs are"
  echo "reported as SKIPPED by ctest."
  echo "************************************************************************"
elif ! installed wine32:i386; then
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $SUDO dpkg --add-architecture i386
    updated=0
  fi
  update
  mapfile -t pins < <(python3 "$root/scripts/wine32_pins.py")
  [ ${#pins[@]} -gt 0 ] && echo "pinning to versions both architectures offer: ${pins[*]}"
  if ! $SUDO apt-get install -y -qq --no-install-recommends --allow-downgrades wine32:i386 "${pins[@]}" >/dev/null; then
    echo "************************************************************************"
    echo "WARNING: wine32:i386 could not be installed; the 32-bit DLL will be built"
    echo "but its wine runs will report SKIPPED in the test output."
    echo "************************************************************************"
  fi
fi
exit 0
