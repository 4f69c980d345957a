#!/usr/bin/env python3
"""ngspice reference for examples/phase-inverter.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import triode, write_beside  # noqa: E402

TITLE = "long-tailed-pair phase inverter"
OP_NODES = ["P1", "P2", "K", "T"]
OUTPUTS = ["out1", "out2"]
LEVELS = [0.05, 2.0, 20.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Cin in G1 22n\nRg1 G1 T 1Meg\nRg2 G2 T 1Meg\nCg2 G2 0 100n\n"
        "Rbias K T 470\nRtail T 0 22k\nVB B 0 350\nRp1 B P1 82k\nRp2 B P2 100k\n" +
        triode("1", "P1", "G1", "K", "12AT7") + triode("2", "P2", "G2", "K", "12AT7") +
        "Co1 P1 out1 100n\nRl1 out1 0 220k\nCo2 P2 out2 100n\nRl2 out2 0 220k\n")


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
