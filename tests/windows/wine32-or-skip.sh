#!/bin/sh
# Runs the given command when 32-bit Windows programs can run under wine here, else
# says loudly why not and exits 77, which ctest reports as a skipped test.
if [ ! -e /usr/lib/wine/wine ]; then
  reason="wine32 (i386) is not installed; scripts/install-windows-deps.sh says why"
elif ! /usr/lib/wine/wine --version >/dev/null 2>&1; then
  reason="wine32 is installed but its i386 loader does not run: $(/usr/lib/wine/wine --version 2>&1 | head -1)
(this kernel does not execute 32-bit x86 programs)"
fi
if [ -z "${reason:-}" ] && grep -qs '^enabled' /proc/sys/fs/binfmt_misc/qemu-i386; then
  # i386 programs run through qemu-i386 here (scripts/install-windows-deps.sh). qemu then
  # reserves the guest's address space up front, so that wine can place what it must at
  # fixed addresses (the shared user data at 0x7ffe0000) instead of finding qemu there.
  echo "NOTE: 32-bit programs run through qemu-i386 (user-mode emulation) on this machine"
  export QEMU_RESERVED_VA=0xf7000000
  # The tests then compare with a reference that runs on the same emulated CPU.
  export KELM_I386_EMULATED=1
fi
if [ -n "${reason:-}" ]; then
  echo "**********************************************************************"
  echo "SKIPPED: the 32-bit Kelm.dll was built but not run under wine."
  echo "$reason"
  echo "**********************************************************************"
  exit 77
fi
exec "$@"
