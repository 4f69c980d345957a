#!/usr/bin/env bash
# The LV2 plug-in's own window in Ardour 7's GUI, on an Xvfb server of its own. A session
# made headless (ardour7-lua) holds Kelm Preamp on a track, and the window state it keeps
# says that the plug-in's window is open; Ardour (dummy backend, a fresh user configuration
# without its first-run dialogs) opens the session and with it that window. Passes when:
#  - the window holds a 730 x 340 child made by another X connection than Ardour's (our
#    kelm_ui.so, not Ardour's generic controls), showing our background with a knob drawn
#    at each of the five knobs' places;
#  - the Gain knob, dragged up 40 pixels with xdotool, turns on the screen (the others stay);
#  - the session Ardour saves on Ctrl+S holds the gain port at 0.7 where it held 0.5, and the
#    other ports as they were.
# Leaves the screenshot in BUILD_DIR/ardour-lv2-ui.png. Skipped (exit 0) without Ardour, Xvfb,
# xdotool or ImageMagick, and for a sanitizer build, whose plug-ins Ardour cannot load.
# Usage: scripts/ardour-gui-test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
here="$(pwd)/scripts/ardour"
background="$(pwd)/resources/PNG/background.png"
for tool in ardour ardour7-lua Xvfb xdotool xwininfo import compare; do
  if ! command -v "$tool" > /dev/null; then
    echo "SKIPPED: Ardour's GUI test needs $tool (apt-get install ardour xvfb xdotool x11-utils imagemagick)"
    exit 0
  fi
done
if grep -Eq '^KELM_(SANITIZE|TSAN):BOOL=ON' "$build/CMakeCache.txt" 2> /dev/null; then
  echo "SKIPPED: $build is a sanitizer build, whose plug-ins Ardour cannot load"
  exit 0
fi
[ -f "$build/lv2/kelm.lv2/kelm_ui.so" ] || { echo "no LV2 bundle in $build/lv2" >&2; exit 1; }

work="$(mktemp -d /tmp/kelm-ardour-gui.XXXXXX)"
xvfb="" host=""
# Ardour runs under timeout, which leads a process group of its own: the group is stopped.
cleanup() {
  if [ -n "$host" ]; then kill -- -"$host" 2> /dev/null || true; wait "$host" 2> /dev/null || true; fi
  if [ -n "$xvfb" ]; then kill "$xvfb" 2> /dev/null || true; wait "$xvfb" 2> /dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() {
  echo "FAIL: $*" >&2
  [ ! -f "$work/ardour.log" ] || { echo "Ardour's output:" >&2; grep -v '^ALSA lib' "$work/ardour.log" | tail -n 30 >&2; }
  exit 1
}
export HOME="$work/home"  # Ardour's configuration, caches and recent sessions stay in here
mkdir -p "$HOME/.config/ardour7"
cp "$here/gui_config.xml" "$HOME/.config/ardour7/config"
touch "$HOME/.config/ardour7/.a7"
export LV2_PATH="$build/lv2"
started=$SECONDS
echo "Ardour GUI test in $work"

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3> "$work/display" 2> "$work/xvfb.log" &
xvfb=$!
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.05; done
[ -s "$work/display" ] || { cat "$work/xvfb.log" >&2; fail "Xvfb did not start"; }
export DISPLAY=":$(head -n 1 "$work/display")"

# waitFor SECONDS COMMAND...: runs COMMAND every 0.2 s until it succeeds (status 0) or the time
# is up (status 1), and stops early when Ardour has died.
waitFor() {
  local end=$((SECONDS + $1))
  shift
  while [ $SECONDS -lt $end ]; do
    "$@" && return 0
    [ -z "$host" ] || kill -0 "$host" 2> /dev/null || fail "Ardour died"
    sleep 0.2
  done
  return 1
}
# differing A B: how many pixels of two images (or regions, FILE[WxH+X+Y]) differ by over 3 %.
differing() { compare -metric AE -fuzz 3% "$1" "$2" null: 2>&1 || true; }
# port SESSION SYMBOL: the value Ardour saved for the LV2 port SYMBOL.
port() { sed -n "s/.*<Port symbol=\"$2\" value=\"\([^\"]*\)\".*/\1/p" "$1"; }

# The session, made headless; ardour7-lua now and then dies of its own heap corruption while
# closing, so a run is judged by the saved session and repeated (three times at most).
name=preamp session="$work/preamp/preamp.ardour"
sed -e "s|@URI@|urn:kelm:preamp|g" -e "s|@DIR@|$work|g" -e "s|@NAME@|$name|g" "$here/gui_session.lua" > "$work/session.lua"
for _ in 1 2 3; do
  rm -rf "${session%/*}"
  timeout 120 ardour7-lua "$work/session.lua" > "$work/session.log" 2>&1 || true
  window=$(sed -n 's/^window \(P-[0-9]*-[0-9]*\)$/\1/p' "$work/session.log")
  [ -n "$window" ] && grep -q 'unique-id="urn:kelm:preamp"' "$session" 2> /dev/null && break
done
[ -n "$window" ] && [ -f "$session" ] || { cat "$work/session.log" >&2; fail "ardour7-lua made no session with Kelm Preamp"; }
[ "$(port "$session" gain)" = 0.5 ] || fail "the new session's gain port is $(port "$session" gain), not 0.5"
grep -q '<Extra>' "$session" && fail "the new session keeps window state already"
# The plug-in's window, open, in the window state Ardour reads back when it loads the session.
sed -i "s|^</Session>|  <Extra>\n    <UI>\n      <Window name=\"$window\" visible=\"1\" x-off=\"500\" y-off=\"60\" x-size=\"-1\" y-size=\"-1\"/>\n    </UI>\n  </Extra>\n</Session>|" "$session"
grep -q "Window name=\"$window\" visible=\"1\"" "$session" || fail "the window state was not written into the session"
portsBefore=$(grep '<Port symbol=' "$session" | grep -v '"gain"')

timeout -k 5 150 ardour -n -a "${session%/*}" > "$work/ardour.log" 2>&1 &
host=$!
title="Kelm: Kelm Preamp"
found() { xdotool search --name "^$title" > "$work/windows" 2> /dev/null; }
waitFor 60 found || fail "no window named \"$title\" after 60 s (Ardour opens none when the plug-in's UI does not load)"
plugWindow=$(head -n 1 "$work/windows")
echo "Ardour shows \"$(xdotool getwindowname "$plugWindow")\" after $((SECONDS - started)) s"

# Our UI's window: 730 x 340 inside the plug-in window. kelm_ui.so draws through an X
# connection of its own, so its window's id has another client's prefix than Ardour's ids
# (the server's resource-id mask, 0x1fffff, leaves the client in the bits above).
uiWindow() {
  xwininfo -id "$plugWindow" -tree | sed -n 's/^ *\(0x[0-9a-f]*\) .*730x340+0+0 .*/\1/p' | tail -n 1 > "$work/ui"
  [ -s "$work/ui" ]
}
waitFor 20 uiWindow || { xwininfo -id "$plugWindow" -tree >&2; fail "no 730 x 340 window inside Ardour's plug-in window"; }
ui=$(cat "$work/ui")
[ $((ui >> 21)) -ne $((plugWindow >> 21)) ] || fail "the 730 x 340 window $ui is Ardour's own, not our UI's"

# The window shows our background: at most 15 % of its pixels differ (the controls), until it
# has drawn. Each knob's square differs from the bare background in over half of its pixels.
pixels=$((730 * 340))
shows() { import -window "$ui" "$work/before.png" && [ "$(differing "$work/before.png" "$background")" -lt $((pixels * 15 / 100)) ]; }
waitFor 20 shows || fail "the window does not show our background: $(differing "$work/before.png" "$background") of $pixels pixels differ"
import -window root "$work/screen.png"
cp "$work/screen.png" "$build/ardour-lv2-ui.png"
knobs=(Input:70x70+31+192 Gain:70x70+133+192 Volume:70x70+235+192 Bass:70x70+31+52 Treble:70x70+133+52)
for knob in "${knobs[@]}"; do
  region=${knob#*:}
  n=$(differing "$work/before.png[$region]" "$background[$region]")
  [ "$n" -gt $((70 * 70 / 2)) ] || fail "no ${knob%%:*} knob drawn: $n of 4900 pixels differ from the background"
done
echo "our UI ($ui in Ardour's $plugWindow) shows the preamp with its five knobs; screenshot in $build/ardour-lv2-ui.png"

# The Gain knob (centre 168, 227) dragged up by 40 pixels: 0.5 becomes 0.7.
xdotool mousemove --window "$ui" 168 227 mousedown 1 mousemove --window "$ui" 168 207 \
  mousemove --window "$ui" 168 187 mouseup 1
turned() {
  import -window "$ui" "$work/after.png" &&
    [ "$(differing "$work/before.png[${knobs[1]#*:}]" "$work/after.png[${knobs[1]#*:}]")" -gt 50 ]
}
waitFor 10 turned || fail "the Gain knob did not turn on the screen"
for knob in "${knobs[@]}"; do
  [ "${knob%%:*}" = Gain ] && continue
  n=$(differing "$work/before.png[${knob#*:}]" "$work/after.png[${knob#*:}]")
  [ "$n" -eq 0 ] || fail "the ${knob%%:*} knob changed on the screen too ($n pixels)"
done

# Ardour's own record of the port: the session it saves on Ctrl+S, the pointer (and so the
# keyboard, the server's focus following the pointer) on its editor window.
saved() { [ "$(port "$session" gain)" != 0.5 ]; }
for _ in 1 2 3; do
  xdotool mousemove 200 600 key ctrl+s
  waitFor 5 saved && break
done
gain=$(port "$session" gain)
awk -v g="$gain" 'BEGIN { exit !(g > 0.69 && g < 0.71) }' || fail "Ardour saved the gain port as $gain, not 0.7"
[ "$(grep '<Port symbol=' "$session" | grep -v '"gain"')" = "$portsBefore" ] || fail "other ports changed as well"
echo "the knob dragged in our UI set Ardour's gain port from 0.5 to $gain (saved session)"

xdotool mousemove 200 600 key ctrl+q
pid=$host host=""
gone() { ! kill -0 "$pid" 2> /dev/null; }
if waitFor 15 gone; then
  wait "$pid" 2> /dev/null || true
else
  echo "Ardour did not quit within 15 s; stopped"
  host=$pid
fi
echo "Ardour's GUI test passed in $((SECONDS - started)) s"
