#!/usr/bin/env python3
"""ngspice reference for examples/cathode-follower-tonestack.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import potentiometer, triode, write_reference  # noqa: E402

TITLE = "cathode follower into a tone stack"
OP_NODES = ["P1", "K1", "K2"]
OUTPUTS = ["out"]
LEVELS = [0.05, 0.5, 3.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Cin in G1 22n\nRgl G1 0 1Meg\nVB B 0 325\nRp1 B P1 100k\nRk1 K1 0 820\n" +
        triode("1", "P1", "G1", "K1", "12AX7") + triode("2", "B", "P1", "K2", "12AX7") + "Rk2 K2 0 100k\n"
        # The tone stack: treble, bass and middle controls, the bass and middle pots as variable resistors.
        "Ct K2 T1 250p\n" + potentiometer("treble", "T3", "out", "T1", 250e3, 0.5) +
        "Rslope K2 N 56k\nCb N T3 20n\n" + potentiometer("bass", "T3", "M", "M", 1e6, 0.5) +
        "Cm N M 20n\n" + potentiometer("mid", "M", "0", "0", 25e3, 0.5) + "Rload out 0 1Meg\n")


if __name__ == "__main__":
    write_reference(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"),
                    TITLE, body(), OP_NODES, OUTPUTS, LEVELS, frames=19200)
