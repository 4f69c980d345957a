#!/usr/bin/env python3
"""ngspice's AC response of the tone stack of examples/baxandall.xml (the op-amp a gain of 1e9),
at the knob positions the tests use; writes reference.txt beside this script.

Each response is a line "response BASS TREBLE COUNT" and COUNT lines "f re im" of v(out) for
1 V in, 60 points a decade from 10 Hz to 100 kHz. A wiper is read as the engine reads it: in
single precision, held within 0.001 and 0.999."""
import os
import struct
import subprocess
import tempfile

POSITIONS = [(0.5, 0.5), (0.0, 1.0), (1.0, 0.0), (0.2, 0.8), (0.9, 0.3), (0.05, 0.05), (0.0, 0.5), (1.0, 0.5)]


def wiper(w):
    single = struct.unpack("f", struct.pack("f", w))[0]
    return min(0.999, max(0.001, single))


def netlist(bass, treble, data):
    b, t = wiper(bass), wiper(treble)
    return ("baxandall\nVin in 0 AC 1\nR31 in 1 11000\n"
            "Rba 2 3 %.12g\nRbb 3 1 %.12g\n" % (b * 1e5, (1 - b) * 1e5) +
            "R32 2 out 11000\nC3 1 2 0.05u\nR7 3 4 11000\nC4 4 6 0.005u\nR51 in 5 3600\n"
            "Rta 7 6 %.12g\nRtb 6 5 %.12g\n" % (t * 5e5, (1 - t) * 5e5) +
            "R52 7 out 3600\nEop out 0 0 4 1e9\n"
            ".control\nset wr_singlescale\nac dec 60 10 100k\nwrdata %s v(out)\n.endc\n.end\n" % data)


def response(bass, treble, work):
    cir, data = os.path.join(work, "bax.cir"), os.path.join(work, "bax.txt")
    with open(cir, "w") as f:
        f.write(netlist(bass, treble, data))
    # Batch mode exits with 1 after a .control block: the data file is what counts.
    subprocess.run(["ngspice", "-b", cir], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with open(data) as f:
        return [tuple(float(v) for v in line.split()) for line in f if line.strip()]


def main():
    lines = ["# The tone stack of examples/baxandall.xml, AC, from ngspice: make_reference.py; do not edit"]
    with tempfile.TemporaryDirectory() as work:
        for bass, treble in POSITIONS:
            points = response(bass, treble, work)
            if len(points) < 200:
                raise SystemExit("ngspice gave %d points for bass %g, treble %g" % (len(points), bass, treble))
            lines.append("response %g %g %d" % (bass, treble, len(points)))
            lines += ["%.7g %.7g %.7g" % p for p in points]
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"), "w") as f:
        f.write("\n".join(lines) + "\n")


main()
