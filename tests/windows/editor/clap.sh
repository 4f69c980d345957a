#!/usr/bin/env bash
# The window of the Windows Kelm.clap under wine, in a window of our CLAP host
# (KelmClapHost.exe gui), which offers no timers, so the window idles itself: xdotool drags the
# Gain knob up by 40 pixels and clicks the CPU switch, and the host's report must show both
# changes and the gestures it was sent. A screenshot goes to OUT.png; given the Linux window's
# screenshot in the same state, the two must agree in every pixel.
#   clap.sh DIR_WITH_Kelm.clap_AND_KelmClapHost.exe OUT.png [LINUX.png]
set -euo pipefail
source "$(dirname "$0")/common.sh"
start_host "$1" KelmClapHost.exe gui Kelm.clap 25
shoot "$2" 730x340 "${3:-}"
drag_gain_click_cpu
finish_host
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
