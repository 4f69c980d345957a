#!/bin/sh
# Runs the given command when 32-bit Windows programs can run under wine here, else
# says loudly why not and exits 77, which ctest reports as a skipped test.
if [ ! -e /usr/lib/wine/wine ]; then
  reason="wine32 (i386) is not installed; scripts/install-windows-deps.sh says why"
elif ! /usr/lib/wine/wine --version >/dev/null 2>&1; then
  reason="wine32 is installed but its i386 loader does not run: $(/usr/lib/wine/wine --version 2>&1 | head -1)
(this kernel does not execute 32-bit x86 programs)"
fi
if [ -n "${reason:-}" ]; then
  echo "**********************************************************************"
  echo "SKIPPED: the 32-bit Kelm.dll was built but not run under wine."
  echo "$reason"
  echo "**********************************************************************"
  exit 77
fi
exec "$@"
