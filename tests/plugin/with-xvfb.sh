#!/usr/bin/env bash
# Runs a command with DISPLAY on an Xvfb server of its own (the server picks a free
# display number), and stops the server afterwards. -noreset: the server stays up
# between the clients that come and go.
set -euo pipefail
tmp=$(mktemp -d)
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset 3>"$tmp/display" 2>"$tmp/log" &
server=$!
trap 'kill $server 2>/dev/null || true; wait $server 2>/dev/null || true; rm -rf "$tmp"' EXIT
for _ in $(seq 200); do
  [ -s "$tmp/display" ] && break
  kill -0 $server 2>/dev/null || break
  sleep 0.05
done
number=$(head -n1 "$tmp/display" 2>/dev/null || true)
if [ -z "$number" ]; then
  echo "Xvfb did not start:" >&2
  cat "$tmp/log" >&2
  exit 1
fi
DISPLAY=":$number" "$@"
