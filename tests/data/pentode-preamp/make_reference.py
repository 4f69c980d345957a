#!/usr/bin/env python3
"""ngspice reference for examples/pentode-preamp.xml; writes reference.txt beside this script."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import pentode, write_reference  # noqa: E402

body = (
    "Rstop in G 10k\nRgl G 0 1Meg\nVB B 0 300\nRp B P 100k\nRs B S 390k\nCs S 0 100n\n"
    "Rk K 0 2.2k\nCk K 0 25u\n" + pentode("1", "P", "S", "G", "K", "EF86") +
    "Co P out 22n\nRl out 0 1Meg\n")

write_reference(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"),
                "EF86 preamp stage", body, ["P", "S", "K"], ["out"], [0.02, 0.2, 2.0], frames=19200)
