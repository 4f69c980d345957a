#!/usr/bin/env bash
# Kelm Circuit's window from the Windows DLL under wine: our host window opens it, xdotool
# picks two examples from its list, and a screenshot is taken after each; the host's report must name the second
# example's controls. Load then opens the system's open-file dialog, which Escape closes.
# The screenshots go to OUT-1.png, OUT-2.png and (the dialog) OUT-3.png.
#   circuit.sh DIR_WITH_KelmCircuit.dll_AND_EditorHost.exe OUT
set -euo pipefail
out=$2
source "$(dirname "$0")/common.sh"
start_host "$1" EditorHost.exe KelmCircuit.dll 30
sleep 2
# The Examples button, then the example's row of the list (rows of 21 pixels from y = 102, eight
# of them shown), in the order of the examples' file names as the plug-in compiles them in.
examples="$(cd "$(dirname "$0")/../../../examples" && pwd)"
pick() {
  local row
  row=$(cd "$examples" && shopt -s nullglob && printf '%s\n' *.xml *.cir *.net | LC_ALL=C sort | grep -n -x -F "$1" |
        cut -d: -f1 || true)
  [ -n "$row" ] && [ "$row" -le 8 ] || { echo "FAIL: $1 is not among the first rows of the list"; kill $host; exit 1; }
  xdotool mousemove --sync 613 24 click 1
  sleep 1
  xdotool mousemove --sync 60 $((102 + (row - 1) * 21 + 10)) click 1
  sleep 3
}
pick baxandall.xml
import -window root -crop 780x480+0+0 +repage "$out-1.png"
pick bassman-tonestack.cir
import -window root -crop 780x480+0+0 +repage "$out-2.png"
xdotool mousemove --sync 518 24 click 1
sleep 4
import -window root -crop 780x480+0+0 +repage "$out-3.png"
xdotool key Escape
finish_host
tr -d '\r' <"$log" | awk '
  /^rect/ { opened = ($2 == "780x480" && $4 == 1 && $6 == 1) }
  /^names/ { names = $2 }
  END {
    bad = 0
    if (!opened) { print "FAIL: the editor did not open as a 780x480 child"; bad = 1 }
    if (names != "Treble,Bass,Middle,-") { print "FAIL: the parameters are " names ", not the tone stack'"'"'s"; bad = 1 }
    exit bad
  }'
