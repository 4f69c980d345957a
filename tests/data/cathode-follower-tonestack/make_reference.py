#!/usr/bin/env python3
"""ngspice reference for examples/cathode-follower-tonestack.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import tone_stack, triode, write_beside  # noqa: E402

TITLE = "cathode follower into a tone stack"
OP_NODES = ["P1", "K1", "K2"]
OUTPUTS = ["out"]
LEVELS = [0.05, 0.5, 3.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Cin in G1 22n\nRgl G1 0 1Meg\nVB B 0 325\nRp1 B P1 100k\nRk1 K1 0 820\n" +
        triode("1", "P1", "G1", "K1", "12AX7") + triode("2", "B", "P1", "K2", "12AX7") + "Rk2 K2 0 100k\n" +
        tone_stack("K2", "out", "250p", 250e3, "56k", "20n", 1e6))


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
