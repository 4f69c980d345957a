#!/usr/bin/env python3
"""ngspice reference for examples/phase-inverter.xml; writes reference.txt beside this script."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import triode, write_reference  # noqa: E402

body = (
    "Cin in G1 22n\nRg1 G1 T 1Meg\nRg2 G2 T 1Meg\nCg2 G2 0 100n\n"
    "Rbias K T 470\nRtail T 0 22k\nVB B 0 350\nRp1 B P1 82k\nRp2 B P2 100k\n" +
    triode("1", "P1", "G1", "K", "12AT7") + triode("2", "P2", "G2", "K", "12AT7") +
    "Co1 P1 out1 100n\nRl1 out1 0 220k\nCo2 P2 out2 100n\nRl2 out2 0 220k\n")

write_reference(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"),
                "long-tailed-pair phase inverter", body, ["P1", "P2", "K", "T"], ["out1", "out2"],
                [0.05, 2.0, 20.0], frames=19200)
