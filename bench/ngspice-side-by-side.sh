#!/bin/bash
# The 12AX7 stage of examples/triode-stage.xml against ngspice: one second of a 1 kHz sine of
# 1 V at 192 kHz, simulated by ngspice (trapezoidal rule at a fixed step of one sample,
# reltol=1e-3) and rendered by `kelm render`; prints the CPU time of each (best of three runs),
# the ratio and kelm's real-time factor. Since bench/ngspice_side_by_side.py runs every example
# circuit this way, this is that script for this one example (the netlist is the one
# tests/data/make_device_references.py converts the example to).
# Usage: bench/ngspice-side-by-side.sh [path/to/kelm]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
exec python3 "$here/bench/ngspice_side_by_side.py" --kelm "${1:-$here/build/kelm}" --only triode-stage --rounds 3
