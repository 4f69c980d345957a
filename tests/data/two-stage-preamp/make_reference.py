#!/usr/bin/env python3
"""ngspice reference for examples/two-stage-preamp.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import potentiometer, triode, write_beside  # noqa: E402

TITLE = "two-stage 12AX7 preamp"
OP_NODES = ["P1", "K1", "P2", "K2"]
OUTPUTS = ["out"]
LEVELS = [0.02, 0.2, 2.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Rstop in G1 68k\nRgl G1 0 1Meg\nVB B 0 300\n"
        "Rp1 B P1 100k\nRk1 K1 0 1.5k\nCk1 K1 0 25u\n" + triode("1", "P1", "G1", "K1", "12AX7") +
        "Cc1 P1 A 22n\n" + potentiometer("vol", "0", "G2", "A", 1e6, 0.5) +
        "Rp2 B P2 100k\nRk2 K2 0 1.5k\n" + triode("2", "P2", "G2", "K2", "12AX7") +
        "Cc2 P2 out 22n\nRload out 0 1Meg\n")


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
