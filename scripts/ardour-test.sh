#!/usr/bin/env bash
# The plug-in in a real host: Ardour 7 headless (ardour7-lua, dummy backend) loads the built
# Kelm.so, lists its nine parameters, sets four, and exports a test signal; the export must
# equal `kelm render` of the same input after the silent lead-in, within the circuit path's
# solver noise (scripts/ardour/compare.py). Ardour 7.3 sometimes dies of its own heap
# corruption around the export (see below): that alone is tolerated, judged by the exported
# file. Then Kelm Circuit: a session saved with it, a document put into the saved session as
# Ardour keeps the plug-in's state (its chunk and parameter values), the session opened again
# and exported, equal to `kelm render --system` of the document.
# Usage: scripts/ardour-test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
here="$(pwd)/scripts/ardour"
work="$(mktemp -d /tmp/kelm-ardour.XXXXXX)"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home"  # Ardour's scan cache, scripts and presets stay in here
mkdir -p "$HOME/.config/ardour7/scripts" "$HOME/.config/ardour7/export" "$work/vst"
echo "Ardour host test in $work"

# Ardour trusts its scan cache only for a file older than the cache entry.
scan() {
  cp "$build/$1" "$work/vst/"
  touch -d @$(( $(date +%s) - 60 )) "$work/vst/$1"
  LD_LIBRARY_PATH=/usr/lib/ardour7 /usr/lib/ardour7/ardour-vst-scanner -v -f "$work/vst/$1" 2>&1 |
    sed -n 's/.*<VST2Info id="\([0-9]*\)".*/\1/p' | head -n 1
}
id=$(scan Kelm.so)
[ -n "$id" ] || { echo "the VST scanner found no plug-in in Kelm.so" >&2; exit 1; }
circuit_id=$(scan KelmCircuit.so)
[ -n "$circuit_id" ] || { echo "the VST scanner found no plug-in in KelmCircuit.so" >&2; exit 1; }

frames=144000  # 1 s of silence, 2 s of notes, at 48 kHz
python3 "$here/make_input.py" "$work/in.wav"
sed "s|@FILE@|$work/in.wav|" "$here/kelm_file_player.lua" > "$HOME/.config/ardour7/scripts/kelm_file_player.lua"
preset=6b1e3f0a-4c2d-4e8f-9a10-6b656c6d0001
sed -e "s/ExportPreset id=\"[^\"]*\"/ExportPreset id=\"$preset\"/" \
    -e 's/ExportFormat id="[^"]*"/ExportFormat id="20b4ab09-6452-4cb3-bd66-b921cdbd2942"/' \
    /usr/share/ardour7/export/wav.preset > "$HOME/.config/ardour7/export/kelm-test.preset"
sed -e "s|@ID@|$id|" -e "s|@DIR@|$work|" -e "s|@FRAMES@|$frames|" -e "s|@PRESET@|$preset|" \
    "$here/session.lua" > "$work/session.lua"

# Ardour 7.3's heap is corrupted now and then around its export, with any plug-in (a trivial
# gain plug-in dies as often, about one run in four here), and glibc then stops it at the next
# free() ("corrupted size vs. prev_size", "free(): invalid next size", "double free or
# corruption"), or it dies of SIGSEGV; mostly while closing the session, now and then before
# the exported file is complete. Such a death (134 SIGABRT, 139 SIGSEGV) is tolerated and the
# exported file judged: it must hold every frame and equal kelm's render below. When it came
# before the file was complete, Ardour is run again, three times at most. Any other failure
# ends the test.
#
# ardour SCRIPT LOG EXPORT.wav|"" NEW_SESSION_DIR|"" LAST_LINE: runs a session script, tolerating
# the deaths above when the export (if any) is complete and the script's last line was printed
# (what it printed before is then in the log too), and running again (three times at most)
# when not; a session the script creates is removed before each run.
ardour() {
  local script=$1 log=$2 out=$3 fresh=$4 last=$5
  for attempt in 1 2 3; do
    status=0
    [ -z "$out" ] || rm -f "$out"
    [ -z "$fresh" ] || rm -rf "$fresh"
    LXVST_PATH="$work/vst" timeout 600 ardour7-lua "$script" > "$log" 2>&1 || status=$?
    [ $status -eq 0 ] && return 0
    if [ $status -ne 134 ] && [ $status -ne 139 ]; then
      cat "$log"
      echo "ardour7-lua failed with status $status" >&2
      exit 1
    fi
    written=$frames
    [ -z "$out" ] || written=$(python3 "$here/compare.py" --frames "$out")
    echo "ardour7-lua died with status $status ($(grep -E -m1 'corrupt|free\(\)' "$log" || echo 'no message')); $written of $frames frames exported"
    [ "$written" -ge "$frames" ] && grep -q "$last" "$log" && return 0
  done
}
ardour "$work/session.lua" "$work/ardour.log" "$work/ardour-out.wav" "$work/session" "^export "
names=$(sed -n 's/^parameter [0-9]* //p' "$work/ardour.log" | tr '\n' ' ')
expected="Input Gain Vol Oversampling Bass Treble EQ_Position Stereo CPU "
if ! grep -q "^parameters 9$" "$work/ardour.log" || [ "$names" != "$expected" ]; then
  cat "$work/ardour.log"
  echo "Ardour lists the parameters as: $names" >&2
  exit 1
fi
if [ $status -eq 0 ] && ! grep -q "^export true" "$work/ardour.log"; then
  cat "$work/ardour.log"; echo "the export failed" >&2; exit 1
fi
[ -s "$work/ardour-out.wav" ] || { cat "$work/ardour.log"; echo "Ardour wrote no export" >&2; exit 1; }
echo "Ardour loaded Kelm (id $id) with its nine parameters: $names"

"$build/kelm" render --in "$work/in.wav" --out "$work/kelm-out.wav" --set CPU=0 --set Oversampling=1 \
    --set Gain=0.8 --set Bass=0.3 > /dev/null
python3 "$here/compare.py" "$work/ardour-out.wav" "$work/kelm-out.wav" 48000 "$frames"
echo "Ardour's export equals kelm render within the solver noise"

# Kelm Circuit: the session saved with the plug-in, then a document put into it (the tone
# stack with Bass at 0.8), opened again and exported.
sed -e "s|@ID@|$circuit_id|" -e "s|@DIR@|$work|" "$here/circuit_create.lua" > "$work/circuit_create.lua"
sed -e "s|@DIR@|$work|" -e "s|@FRAMES@|$frames|" -e "s|@PRESET@|$preset|" "$here/circuit_restore.lua" > "$work/circuit_restore.lua"
ardour "$work/circuit_create.lua" "$work/circuit-create.log" "" "$work/circuit" "^created with "
[ -f "$work/circuit/circuit.ardour" ] || { cat "$work/circuit-create.log"; echo "Ardour saved no session" >&2; exit 1; }
python3 "$here/put_chunk.py" "$work/circuit/circuit.ardour" examples/baxandall.xml baxandall.xml \
  "0.8 0.5 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0.5 0.5 0 1"
ardour "$work/circuit_restore.lua" "$work/circuit.log" "$work/circuit-out.wav" "" "^export "
if ! grep -q "^plug-in Kelm Circuit, parameters 20$" "$work/circuit.log" ||
   ! grep -q "^parameter 0 Bass 0.8" "$work/circuit.log" || ! grep -q "^parameter 1 Treble 0.5" "$work/circuit.log"; then
  cat "$work/circuit.log"
  echo "Ardour did not restore the document's parameters" >&2
  exit 1
fi
[ -s "$work/circuit-out.wav" ] || { cat "$work/circuit.log"; echo "Ardour wrote no export of Kelm Circuit" >&2; exit 1; }
echo "Ardour restored Kelm Circuit (id $circuit_id) holding baxandall.xml: $(sed -n 's/^parameter \([01]\) \([A-Za-z]*\) .*/\2/p' "$work/circuit.log" | tr '\n' ' ')"
"$build/kelm" render --system examples/baxandall.xml --in "$work/in.wav" --out "$work/kelm-circuit.wav" --set Bass=0.8 > /dev/null
python3 "$here/compare.py" "$work/circuit-out.wav" "$work/kelm-circuit.wav" 48000 "$frames"
echo "Ardour's export of the restored session equals kelm render --system"
