#!/usr/bin/env bash
# The LV2 UIs in a real LV2 host: Debian's jalv.gtk3 (which embeds X11 UIs through suil and
# gives in-process UIs instance-access) on a JACK server with the dummy driver, under the Xvfb
# server of tests/plugin/with-xvfb.sh. Passes when jalv opens our UI for each plug-in and
# embeds its window in its own: the preamp's 730 x 340, Kelm Circuit's 780 x 480. Leaves
# screenshots in lv2-ui-jalv.png and lv2-circuit-ui-jalv.png when ffmpeg is there. Exits 77
# (skipped) without jalv.gtk3 or jackd.  Usage: with-xvfb.sh tests/plugin/jalv-ui.sh BUNDLE_PARENT_DIR
set -uo pipefail
lv2dir="$1"
for tool in jalv.gtk3 jackd xwininfo; do
  if ! command -v "$tool" > /dev/null; then
    echo "SKIPPED: $tool is not installed (apt-get install jalv jackd2 x11-utils)"
    exit 77
  fi
done
tmp=$(mktemp -d)
server="kelm-jalv-$$"
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null; wait "$p" 2>/dev/null; done; rm -rf "$tmp"; }
trap cleanup EXIT
JACK_NO_AUDIO_RESERVATION=1 JACK_DEFAULT_SERVER=$server jackd --no-realtime -d dummy -r 48000 -p 256 > "$tmp/jack.log" 2>&1 &
pids+=($!)
sleep 2
# check URI NAME WIDTH HEIGHT SCREENSHOT: jalv shows plug-in URI (window title NAME) with our
# UI, URI:ui, of WIDTH x HEIGHT embedded below its menu; then jalv is closed.
check() {
  local uri=$1 name=$2 width=$3 height=$4 png=$5
  JACK_DEFAULT_SERVER=$server LV2_PATH="$lv2dir:/usr/lib/lv2" jalv.gtk3 "$uri" > "$tmp/jalv.log" 2>&1 &
  local jalv=$!
  pids+=($jalv)
  for _ in $(seq 100); do
    xwininfo -root -tree 2>/dev/null | grep -q "\"$name\"" && break
    sleep 0.1
  done
  sleep 1
  local tree
  tree=$(xwininfo -root -tree)
  cat "$tmp/jalv.log"
  if ! grep -q "^UI: *$uri:ui" "$tmp/jalv.log"; then
    echo "FAIL: jalv did not choose our UI for $uri"
    exit 1
  fi
  if ! echo "$tree" | grep -q "\"$name\"" ||
     ! echo "$tree" | grep -A2 "\"jalv.gtk3\".*${width}x${height}" | grep -q "(has no name): ()  ${width}x${height}"; then
    echo "$tree"
    echo "FAIL: our $width x $height window is not embedded in jalv's"
    exit 1
  fi
  if command -v ffmpeg > /dev/null; then
    ffmpeg -loglevel error -y -f x11grab -video_size "${width}x$((height + 25))" -i "$DISPLAY.0+0,0" -frames:v 1 "$png"
  fi
  kill "$jalv" 2>/dev/null
  wait "$jalv" 2>/dev/null
  echo "ok: jalv.gtk3 shows $uri:ui in its window"
}
check urn:kelm:preamp "Kelm Preamp" 730 340 lv2-ui-jalv.png
check urn:kelm:circuit "Kelm Circuit" 780 480 lv2-circuit-ui-jalv.png
