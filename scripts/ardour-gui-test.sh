#!/usr/bin/env bash
# The LV2 plug-ins' own windows in Ardour 7's GUI, on an Xvfb server of its own. For each
# plug-in a session made headless (ardour7-lua) holds it on a track, and the window state the
# session keeps says that the plug-in's window is open; Ardour (dummy backend, a fresh user
# configuration without its first-run dialogs) opens the session and with it that window.
# In each, our UI must be there: a child window of our size made by another X connection than
# Ardour's (kelm_ui.so draws through its own; Ardour's generic controls would be its own
# widgets). Then:
#  - Kelm Preamp: the window shows our background with a knob at each of the five knobs'
#    places; the Gain knob, dragged up 40 pixels with xdotool, turns on the screen (the others
#    stay), and the session Ardour saves on Ctrl+S holds the gain port at 0.7 where it held
#    0.5, the other ports as they were.
#  - Kelm Circuit: its four fixed knobs are drawn and its panel is empty (the default example
#    has no controls); baxandall.xml picked from Examples with the mouse brings the Bass and
#    Treble knobs; Bass dragged up 40 pixels turns, and the saved session holds slot1 at 0.7,
#    the other ports as they were, and the plug-in's state the document with that value.
# Leaves screenshots in BUILD_DIR/ardour-lv2-ui.png and ardour-lv2-circuit-ui.png. Skipped
# (exit 0) without Ardour, Xvfb, xdotool or ImageMagick, and for a sanitizer build, whose
# plug-ins Ardour cannot load.  Usage: scripts/ardour-gui-test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
here="$(pwd)/scripts/ardour"
background="$(pwd)/resources/PNG/background.png"
for tool in ardour ardour7-lua Xvfb xdotool xwininfo import compare convert; do
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
DISPLAY=":$(head -n 1 "$work/display")"
export DISPLAY

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
# port SYMBOL: the value of the LV2 port SYMBOL in the saved session.
port() { sed -n "s/.*<Port symbol=\"$1\" value=\"\([^\"]*\)\".*/\1/p" "$session"; }
# otherPorts SYMBOL: the saved ports but SYMBOL.
otherPorts() { grep '<Port symbol=' "$session" | grep -v "\"$1\""; }
# near VALUE TARGET: VALUE within 0.01 of TARGET.
near() { awk -v v="$1" -v t="$2" 'BEGIN { exit !(v > t - 0.01 && v < t + 0.01) }'; }

# makeSession NAME URI: the session $work/NAME holding plug-in URI, with its window open.
# ardour7-lua now and then dies of its own heap corruption while closing, so a run is judged by
# the saved session and repeated (three times at most).
makeSession() {
  local name=$1 uri=$2 window=""
  session="$work/$name/$name.ardour"
  sed -e "s|@URI@|$uri|g" -e "s|@DIR@|$work|g" -e "s|@NAME@|$name|g" "$here/gui_session.lua" > "$work/session.lua"
  for _ in 1 2 3; do
    rm -rf "${session%/*}"
    timeout 120 ardour7-lua "$work/session.lua" > "$work/session.log" 2>&1 || true
    window=$(sed -n 's/^window \(P-[0-9]*-[0-9]*\)$/\1/p' "$work/session.log")
    [ -n "$window" ] && grep -q "unique-id=\"$uri\"" "$session" 2> /dev/null && break
  done
  [ -n "$window" ] && [ -f "$session" ] || { cat "$work/session.log" >&2; fail "ardour7-lua made no session with $uri"; }
  ! grep -q '<Extra>' "$session" || fail "the new session keeps window state already"
  # The plug-in's window, open, in the window state Ardour reads back when it loads the session.
  sed -i "s|^</Session>|  <Extra>\n    <UI>\n      <Window name=\"$window\" visible=\"1\" x-off=\"460\" y-off=\"60\" x-size=\"-1\" y-size=\"-1\"/>\n    </UI>\n  </Extra>\n</Session>|" "$session"
  grep -q "Window name=\"$window\" visible=\"1\"" "$session" || fail "the window state was not written into the session"
}

# openUi TITLE WIDTH HEIGHT: Ardour started on the session; sets ui to our UI's window, of
# WIDTH x HEIGHT inside Ardour's window TITLE. kelm_ui.so draws through an X connection of its
# own, so its window's id has another client's prefix than Ardour's ids (the server's
# resource-id mask, 0x1fffff, leaves the client in the bits above).
openUi() {
  local title=$1 size="$2x$3"
  timeout -k 5 150 ardour -n -a "${session%/*}" > "$work/ardour.log" 2>&1 &
  host=$!
  found() { xdotool search --name "^$title" > "$work/windows" 2> /dev/null; }
  waitFor 60 found || fail "no window named \"$title\" after 60 s (Ardour opens none when the plug-in's UI does not load)"
  plugWindow=$(head -n 1 "$work/windows")
  echo "Ardour shows \"$(xdotool getwindowname "$plugWindow")\" after $((SECONDS - started)) s"
  inside() {
    xwininfo -id "$plugWindow" -tree | sed -n "s/^ *\(0x[0-9a-f]*\) .*$size+0+0 .*/\1/p" | tail -n 1 > "$work/ui"
    [ -s "$work/ui" ]
  }
  waitFor 20 inside || { xwininfo -id "$plugWindow" -tree >&2; fail "no $size window inside Ardour's plug-in window"; }
  ui=$(cat "$work/ui")
  [ $((ui >> 21)) -ne $((plugWindow >> 21)) ] || fail "the $size window $ui is Ardour's own, not our UI's"
}

# drag X Y: the mouse pressed at X, Y in our UI, moved up 40 pixels in two steps, released.
drag() {
  xdotool mousemove --window "$ui" "$1" "$2" mousedown 1 mousemove --window "$ui" "$1" $(($2 - 20)) \
    mousemove --window "$ui" "$1" $(($2 - 40)) mouseup 1
}

# saveAndQuit SYMBOL FROM: Ctrl+S, the pointer (and so the keyboard, the server's focus
# following the pointer) on Ardour's editor, until port SYMBOL is saved changed from FROM;
# then Ctrl+Q, and Ardour stopped when it has not quit after 15 s.
saveAndQuit() {
  local symbol=$1 from=$2
  saved() { [ "$(port "$symbol")" != "$from" ]; }
  for _ in 1 2 3; do
    xdotool mousemove 200 600 key ctrl+s
    waitFor 5 saved && break
  done
  xdotool mousemove 200 600 key ctrl+q
  local pid=$host
  host=""
  gone() { ! kill -0 "$pid" 2> /dev/null; }
  if waitFor 15 gone; then
    wait "$pid" 2> /dev/null || true
  else
    echo "Ardour did not quit within 15 s; stopped"
    kill -- -"$pid" 2> /dev/null || true
    wait "$pid" 2> /dev/null || true
  fi
}

# Kelm Preamp.
makeSession preamp urn:kelm:preamp
[ "$(port gain)" = 0.5 ] || fail "the new session's gain port is $(port gain), not 0.5"
portsBefore=$(otherPorts gain)
openUi "Kelm: Kelm Preamp" 730 340
# The window shows our background (at most 15 % of its pixels differ: the controls) once it
# has drawn; each knob's square differs from the bare background in over half of its pixels.
pixels=$((730 * 340))
shows() { import -window "$ui" "$work/before.png" && [ "$(differing "$work/before.png" "$background")" -lt $((pixels * 15 / 100)) ]; }
waitFor 20 shows || fail "the window does not show our background: $(differing "$work/before.png" "$background") of $pixels pixels differ"
import -window root "$build/ardour-lv2-ui.png"
knobs=(Input:70x70+31+192 Gain:70x70+133+192 Volume:70x70+235+192 Bass:70x70+31+52 Treble:70x70+133+52)
for knob in "${knobs[@]}"; do
  n=$(differing "$work/before.png[${knob#*:}]" "${background}[${knob#*:}]")
  [ "$n" -gt $((70 * 70 / 2)) ] || fail "no ${knob%%:*} knob drawn: $n of 4900 pixels differ from the background"
done
echo "our UI ($ui in Ardour's window $plugWindow) shows the preamp's five knobs; screenshot in $build/ardour-lv2-ui.png"
drag 168 227  # the Gain knob's centre: 0.5 becomes 0.7
turned() { import -window "$ui" "$work/after.png" && [ "$(differing "$work/before.png[${knobs[1]#*:}]" "$work/after.png[${knobs[1]#*:}]")" -gt 50 ]; }
waitFor 10 turned || fail "the Gain knob did not turn on the screen"
for knob in "${knobs[@]}"; do
  [ "${knob%%:*}" = Gain ] && continue
  n=$(differing "$work/before.png[${knob#*:}]" "$work/after.png[${knob#*:}]")
  [ "$n" -eq 0 ] || fail "the ${knob%%:*} knob changed on the screen too ($n pixels)"
done
saveAndQuit gain 0.5
near "$(port gain)" 0.7 || fail "Ardour saved the gain port as $(port gain), not 0.7"
[ "$(otherPorts gain)" = "$portsBefore" ] || fail "other ports than gain changed as well"
echo "the Gain knob dragged in our UI set Ardour's gain port from 0.5 to $(port gain) (saved session)"

# Kelm Circuit. Its window has no picture to compare with: knobs are told from the panel's
# plain colour, which a knob's square differs from in over half of its pixels.
makeSession circuit urn:kelm:circuit
slot1=$(port slot1)
portsBefore=$(otherPorts slot1)
openUi "Kelm: Kelm Circuit" 780 480
convert -size 70x70 xc:'#37302a' "$work/panel.png"
knob() { [ "$(differing "$1[70x70+$2+$3]" "$work/panel.png")" -gt $((70 * 70 / 2)) ]; }
fixedKnobs() { import -window "$ui" "$work/circuit.png" && knob "$work/circuit.png" 26 346 && knob "$work/circuit.png" 120 346 &&
  knob "$work/circuit.png" 214 346 && knob "$work/circuit.png" 308 346; }
waitFor 20 fixedKnobs || fail "Kelm Circuit's window does not show its four fixed knobs"
[ "$(differing "$work/circuit.png[70x70+26+80]" "$work/panel.png")" -eq 0 ] || fail "a slot knob is shown for a document without controls"
# Examples (566, 10, 94 x 28), then the row of baxandall.xml (list from y = 102, rows of 21 pixels).
row=$(find examples -maxdepth 1 -type f -printf '%f\n' | LC_ALL=C sort | grep -n -x baxandall.xml | cut -d: -f1)
[ -n "$row" ] && [ "$row" -le 8 ] || fail "baxandall.xml is not among the first eight examples"
xdotool mousemove --window "$ui" 613 24 click 1
listed() { import -window "$ui" "$work/circuit.png" && [ "$(differing "$work/circuit.png[70x70+26+102]" "$work/panel.png")" -gt $((70 * 70 / 2)) ]; }
waitFor 10 listed || fail "Examples shows no list"
xdotool mousemove --window "$ui" 44 $((102 + (row - 1) * 21 + 10)) click 1
slotKnobs() { import -window "$ui" "$work/circuit.png" && knob "$work/circuit.png" 26 80 && knob "$work/circuit.png" 120 80; }
waitFor 20 slotKnobs || fail "no Bass and Treble knobs after baxandall.xml was picked"
import -window root "$build/ardour-lv2-circuit-ui.png"
cp "$work/circuit.png" "$work/before.png"
echo "Kelm Circuit's UI ($ui) shows its four fixed knobs, and baxandall.xml's two after it was picked; screenshot in $build/ardour-lv2-circuit-ui.png"
drag 61 115  # the Bass knob's centre
turned() { import -window "$ui" "$work/after.png" && [ "$(differing "$work/before.png[70x70+26+80]" "$work/after.png[70x70+26+80]")" -gt 50 ]; }
waitFor 10 turned || fail "the Bass knob did not turn on the screen"
saveAndQuit slot1 "$slot1"
near "$(port slot1)" 0.7 || fail "Ardour saved the slot1 port as $(port slot1), not 0.7"
[ "$(otherPorts slot1)" = "$portsBefore" ] || fail "other ports than slot1 changed as well"
stateDir=$(sed -n 's/.*<lv2 .* state-dir="\([^"]*\)".*/\1/p' "$session")
state=$(find "${session%/*}/plugins" -path "*/$stateDir/state.ttl")
[ -n "$stateDir" ] && [ -f "$state" ] || fail "Ardour saved no state of Kelm Circuit"
grep -q '^name: baxandall.xml$' "$state" || fail "the saved state holds $(grep '^name:' "$state"), not baxandall.xml"
grep -Eq '^parameters: 0\.(69|7)[0-9]* ' "$state" || fail "the saved state holds $(grep '^parameters:' "$state")"
echo "Bass dragged in our UI set Ardour's slot1 port from $slot1 to $(port slot1); the saved state holds baxandall.xml with it"
echo "Ardour's GUI test passed in $((SECONDS - started)) s"
