#!/usr/bin/env python3
"""ngspice reference for examples/pentode-preamp.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import pentode, write_beside  # noqa: E402

TITLE = "EF86 preamp stage"
OP_NODES = ["P", "S", "K"]
OUTPUTS = ["out"]
LEVELS = [0.02, 0.2, 2.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Rstop in G 10k\nRgl G 0 1Meg\nVB B 0 300\nRp B P 100k\nRs B S 390k\nCs S 0 100n\n"
        "Rk K 0 2.2k\nCk K 0 25u\n" + pentode("1", "P", "S", "G", "K", "EF86") +
        "Co P out 22n\nRl out 0 1Meg\n")


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
