#!/usr/bin/env python3
"""ngspice reference for examples/high-gain-preamp.xml; writes reference.txt beside this script.

Importing it writes nothing: TITLE and body() give the circuit to other scripts."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import potentiometer, tone_stack, triode, write_beside  # noqa: E402

TITLE = "four-triode preamp with tone stack"
OP_NODES = ["P1", "K1", "P2", "K2", "P3", "K3", "K4"]
OUTPUTS = ["out"]
LEVELS = [0.01, 0.1, 1.0]  # input amplitudes (V)


def body():
    """The netlist without its input source, which drives node 'in'."""
    return (
        "Rstop in G1 68k\nRgl G1 0 1Meg\nVB B 0 300\n"
        "Rp1 B P1 100k\nRk1 K1 0 2.7k\nCk1 K1 0 680n\n" + triode("1", "P1", "G1", "K1", "12AX7") +
        "Cc1 P1 A1 22n\n" + potentiometer("gain", "0", "G2", "A1", 1e6, 0.6) +
        "Rp2 B P2 100k\nRk2 K2 0 10k\nCk2 K2 0 680n\n" + triode("2", "P2", "G2", "K2", "12AX7") +
        "Cc2 P2 A2 22n\nRa A2 G3 470k\nRb G3 0 470k\n"
        "Rp3 B P3 100k\nRk3 K3 0 820\n" + triode("3", "P3", "G3", "K3", "12AX7") +
        "Rcf P3 G4 270k\n" + triode("4", "B", "G4", "K4", "12AX7") + "Rk4 K4 0 100k\n" +
        tone_stack("K4", "out", "470p", 220e3, "33k", "22n", 1e6))


if __name__ == "__main__":
    write_beside(__file__, TITLE, body(), OP_NODES, OUTPUTS, LEVELS)
