#!/usr/bin/env python3
"""ngspice reference for examples/12at7-stage.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import triode, write_beside  # noqa: E402

TITLE = "12AT7 stage, cathode unbypassed"
OP_NODES = ["P", "K"]
OUTPUTS = ["out"]
LEVELS = [0.05, 0.5, 5.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Cin in G 22n\nRgl G 0 1Meg\nVB B 0 300\nRp B P 100k\nRk K 0 1.5k\n" + triode("1", "P", "G", "K", "12AT7") +
        "Co P out 22n\nRl out 0 1Meg\n")


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
