#!/usr/bin/env python3
"""ngspice reference for examples/12at7-stage.xml; writes reference.txt beside this script."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from ngspice_tubes import triode, write_reference  # noqa: E402

body = (
    "Cin in G 22n\nRgl G 0 1Meg\nVB B 0 300\nRp B P 100k\nRk K 0 1.5k\n" + triode("1", "P", "G", "K", "12AT7") +
    "Co P out 22n\nRl out 0 1Meg\n")

write_reference(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"),
                "12AT7 stage, cathode unbypassed", body, ["P", "K"], ["out"], [0.05, 0.5, 5.0], frames=19200)
