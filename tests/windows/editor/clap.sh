#!/usr/bin/env bash
# The window of the Windows Kelm.clap under wine, on the display in DISPLAY (an Xvfb of
# tests/plugin/with-xvfb.sh), in a window of our CLAP host (KelmClapHost.exe gui), which offers
# no timers, so the window idles itself: xdotool
# drags the Gain knob up by 40 pixels and clicks the CPU switch, and the host's report must
# show both changes and the gestures it was sent. A screenshot goes to OUT.png; given the
# Linux window's screenshot in the same state, the two must agree in every pixel.
#   clap.sh DIR_WITH_Kelm.clap_AND_KelmClapHost.exe OUT.png [LINUX.png]
set -euo pipefail
dir=$1
shot=$2
reference=${3:-}
export WINEDEBUG=-all
export WINEPREFIX=${WINEPREFIX:-/tmp/kelm-wine64}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
(cd "$dir" && exec /usr/lib/wine/wine64 KelmClapHost.exe gui Kelm.clap 25) >"$log" 2>&1 &
host=$!
for _ in $(seq 600); do
  grep -q '^rect' "$log" && break
  kill -0 $host 2>/dev/null || break
  sleep 0.2
done
grep -q '^rect' "$log" || { echo "FAIL: the host did not open the window:"; cat "$log"; exit 1; }
for _ in $(seq 30); do
  sleep 0.5
  import -window root -crop 730x340+0+0 +repage "$shot"
  [ -n "$reference" ] || break
  differ=$(compare -metric AE "$shot" "$reference" null: 2>&1 || true)
  [ "$differ" = "0" ] && break
done
if [ -n "$reference" ] && [ "$differ" != "0" ]; then
  echo "FAIL: the window differs from Linux's in $differ pixels"; kill $host; exit 1
fi
xdotool mousemove --sync 168 227 mousedown 1 mousemove --sync 168 207 mousemove --sync 168 187 mouseup 1
sleep 0.5
xdotool mousemove --sync 380 226 click 1
wait $host || { echo "host failed:"; cat "$log"; exit 1; }
cat "$log"
tr -d '\r' <"$log" | awk '
  /^rect/ { opened = ($2 == "730x340" && $4 == 1 && $6 == 1 && $8 == 0) }
  /^gain/ { gain = $2; cpu = $4; values = $6; begin = $8; end_ = $10; closed = $12; faults = $14 }
  END {
    bad = 0
    if (!opened) { print "FAIL: the window did not open as a 730x340 child (without a host timer)"; bad = 1 }
    if (gain < 0.69 || gain > 0.71) { print "FAIL: Gain is " gain ", not 0.7 after the drag"; bad = 1 }
    if (cpu != 0) { print "FAIL: CPU is " cpu ", not toggled from 1 to 0"; bad = 1 }
    if (begin != 2 || end_ != 2 || values < 2) { print "FAIL: the host was not sent two whole gestures"; bad = 1 }
    if (closed != 1 || faults != 0) { print "FAIL: the child window outlived destroy, or the host saw faults"; bad = 1 }
    exit bad
  }'
