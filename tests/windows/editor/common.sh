# Sourced by the editor scripts: a Windows host under wine, on the display in DISPLAY (an Xvfb
# of tests/plugin/with-xvfb.sh), that prints a line "rect ..." once the plug-in's window is open
# and its report when it ends; $log holds what it printed.
export WINEDEBUG=-all
export WINEPREFIX=${WINEPREFIX:-/tmp/kelm-wine64}
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# start_host DIR PROGRAM ARGS...: runs PROGRAM in DIR and returns once the window is open
# (a new wine prefix takes a while).
start_host() {
  local dir=$1
  shift
  # Without the Windows build there is nothing to run: skipped (ctest's code 77), not failed.
  [ -f "$dir/$1" ] || { echo "SKIPPED: $dir/$1 is missing (scripts/build-windows.sh builds it)"; exit 77; }
  (cd "$dir" && exec /usr/lib/wine/wine64 "$@") >"$log" 2>&1 &
  host=$!
  for _ in $(seq 600); do
    grep -q '^rect' "$log" && break
    kill -0 $host 2>/dev/null || break
    sleep 0.2
  done
  grep -q '^rect' "$log" || { echo "FAIL: the host did not open the window:"; cat "$log"; exit 1; }
}

# shoot OUT.png WxH [REFERENCE.png]: the window's screenshot. The first idle calls paint the
# window; on a busy machine that may take seconds, so given a reference the screenshot is
# taken again until it matches, for up to 15 s.
shoot() {
  local differ=0
  for _ in $(seq 30); do
    sleep 0.5
    import -window root -crop "$2+0+0" +repage "$1"
    [ -n "${3:-}" ] || return 0
    differ=$(compare -metric AE "$1" "$3" null: 2>&1 || true)
    [ "$differ" = "0" ] && return 0
  done
  echo "FAIL: the window differs from Linux's in $differ pixels"; kill $host; exit 1
}

# The preamp's window: drags the Gain knob up by 40 pixels, then clicks the CPU switch.
drag_gain_click_cpu() {
  xdotool mousemove --sync 168 227 mousedown 1 mousemove --sync 168 207 mousemove --sync 168 187 mouseup 1
  sleep 0.5
  xdotool mousemove --sync 380 226 click 1
}

# Waits for the host to end and shows its report.
finish_host() {
  wait $host || { echo "host failed:"; cat "$log"; exit 1; }
  cat "$log"
}
