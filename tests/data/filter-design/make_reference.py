#!/usr/bin/env python3
"""Reference low-pass designs from scipy, one per line of reference.txt beside this script:
   family order fc | a1 .. aN | b0 .. bN
Butterworth: scipy.signal.butter (bilinear transform with prewarping).
Bessel: scipy's prototype (besselap) normalised for -3 dB at 1 rad/s
(norm="mag": these are the poles of the design's Bessel table), scaled to
2*pi*fc radians per sample and mapped with the matched z-transform z = exp(s),
numerator a single gain that makes the DC gain 1."""
import os

import numpy as np
from scipy import signal

CORNERS = [0.02, 0.05, 0.12125, 0.2, 0.3, 0.45]

def line(family, order, fc, a, b):
    return "%s %d %.17g | %s | %s" % (family, order, fc, " ".join("%.17g" % v for v in a[1:]),
                                        " ".join("%.17g" % v for v in b))

lines = ["# Butterworth and Bessel low-pass designs from scipy: make_reference.py; do not edit"]
for order in range(1, 11):
    for fc in CORNERS:
        b, a = signal.butter(order, 2 * fc, btype="low")
        lines.append(line("Butterworth", order, fc, a, b))
        z, p, k = signal.besselap(order, norm="mag")
        zp = np.exp(p * 2 * np.pi * fc)
        a = np.real(np.poly(zp))
        b = np.zeros(order + 1)
        b[0] = np.sum(a)
        lines.append(line("Bessel", order, fc, a, b))
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"), "w") as f:
    f.write("\n".join(lines) + "\n")
