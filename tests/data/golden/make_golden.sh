#!/bin/sh
# Renders the reference outputs of the built-in preamp's table path (CPU=1) at 1x, 2x and 4x
# oversampling, and 4x with the drive turned up, from preamp-in.wav. The files here were made
# with build/kelm of commit 0d6e1a0 (f767cec, before the speed work on the oversampling cascade and the
# VC handler, with the warm-up that leaves the preamp at rest); tests/plugin/GoldenRenderTest.cpp checks
# that today's effect gives the same samples.
# Usage: make_golden.sh PATH/TO/kelm
set -e
KELM=${1:-build/kelm}
cd "$(dirname "$0")"
python3 make_input.py preamp-in.wav
"$KELM" render --in preamp-in.wav --out table-1x.wav --set CPU=1 --set Oversampling=0 --block 512
"$KELM" render --in preamp-in.wav --out table-2x.wav --set CPU=1 --set Oversampling=0.5 --block 512
"$KELM" render --in preamp-in.wav --out table-4x.wav --set CPU=1 --set Oversampling=1 --block 512
"$KELM" render --in preamp-in.wav --out table-4x-hot.wav --set CPU=1 --set Oversampling=1 --set Input=0.9 \
    --set Gain=0.9 --set Bass=0.8 --set Treble=0.2 --block 512
