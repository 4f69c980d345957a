#!/usr/bin/env bash
# The LV2 UI in a real LV2 host: Debian's jalv.gtk3 (which embeds X11 UIs through suil) on a
# JACK server with the dummy driver, under the Xvfb server of tests/plugin/with-xvfb.sh.
# Passes when jalv opens our UI and embeds its 730 x 340 window in its own; leaves a
# screenshot in lv2-ui-jalv.png when ffmpeg is there. Exits 77 (skipped) without jalv.gtk3
# or jackd.  Usage: with-xvfb.sh tests/plugin/jalv-ui.sh BUNDLE_PARENT_DIR
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
JACK_DEFAULT_SERVER=$server LV2_PATH="$lv2dir:/usr/lib/lv2" jalv.gtk3 urn:kelm:preamp > "$tmp/jalv.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do
  xwininfo -root -tree 2>/dev/null | grep -q '"Kelm Preamp"' && break
  sleep 0.1
done
sleep 1
tree=$(xwininfo -root -tree)
cat "$tmp/jalv.log"
if ! grep -q "^UI: *urn:kelm:preamp:ui" "$tmp/jalv.log"; then
  echo "FAIL: jalv did not choose our UI"
  exit 1
fi
# jalv's window, and inside it (below its menu) our window of 730 x 340.
if ! echo "$tree" | grep -q '"Kelm Preamp"' || ! echo "$tree" | grep -A2 '"jalv.gtk3".*730x340' | grep -q '(has no name): ()  730x340'; then
  echo "$tree"
  echo "FAIL: our 730 x 340 window is not embedded in jalv's"
  exit 1
fi
if command -v ffmpeg > /dev/null; then
  ffmpeg -loglevel error -y -f x11grab -video_size 730x365 -i "$DISPLAY.0+0,0" -frames:v 1 lv2-ui-jalv.png
fi
echo "ok: jalv.gtk3 shows the UI in its window"
