#!/usr/bin/env bash
# The editor of the Windows DLL under wine: our host window opens it, xdotool drags the Gain
# knob up by 40 pixels and clicks the CPU switch, and the host's report must show both
# changes. A screenshot of the window goes to OUT.png; given the Linux window's screenshot in
# the same state, the two must agree in every pixel.
#   run.sh DIR_WITH_Kelm.dll_AND_EditorHost.exe OUT.png [LINUX.png]
set -euo pipefail
source "$(dirname "$0")/common.sh"
start_host "$1" EditorHost.exe Kelm.dll 25
shoot "$2" 730x340 "${3:-}"
drag_gain_click_cpu
finish_host
tr -d '\r' <"$log" | awk '
  /^rect/ { opened = ($2 == "730x340" && $4 == 1 && $6 == 1) }
  /^gain/ { gain = $2; cpu = $4; automate = $6; begin = $8; end_ = $10; closed = $12 }
  END {
    bad = 0
    if (!opened) { print "FAIL: the editor did not open as a 730x340 child"; bad = 1 }
    if (gain < 0.69 || gain > 0.71) { print "FAIL: Gain is " gain ", not 0.7 after the drag"; bad = 1 }
    if (cpu != 0) { print "FAIL: CPU is " cpu ", not toggled from 1 to 0"; bad = 1 }
    if (begin < 2 || end_ < 2 || automate < 2) { print "FAIL: the host heard too little"; bad = 1 }
    if (closed != 1) { print "FAIL: the child window outlived close"; bad = 1 }
    exit bad
  }'
