#!/usr/bin/env python3
"""Prints the tables of math/Elementary.h, each value rounded once to the nearest double
from 50 significant digits: 2^(j/64) for j = 0..63, log(1 + j/32) for j = 0..15 and
log((1 + j/32) / 2) for j = 16..32, atan(j/32) for j = 0..32, as C++ hexadecimal literals."""
from decimal import Decimal, getcontext

getcontext().prec = 50


def atan(x):
    # Halve the angle until the argument is small, then the Taylor series.
    halvings = 0
    while x > Decimal("0.05"):
        x = x / (1 + (1 + x * x).sqrt())
        halvings += 1
    total, term, k, x2 = Decimal(0), x, 1, x * x
    while abs(term) > Decimal(10) ** -55:
        total += term / k if (k // 2) % 2 == 0 else -term / k
        term *= x2
        k += 2
    return total * (2 ** halvings)


def literal(d):
    return float(d).hex()  # float() of the decimal's text rounds to nearest


def table(name, values, per_line=3):
    print(f"inline constexpr double {name}[{len(values)}] = {{")
    for i in range(0, len(values), per_line):
        print("    " + ", ".join(literal(v) for v in values[i:i + per_line]) + ",")
    print("};")


ln2 = Decimal(2).ln()
table("kExp2", [(ln2 * j / 64).exp() for j in range(64)])
table("kLog", [((1 + Decimal(j) / 32) / (1 if j < 16 else 2)).ln() for j in range(33)])
table("kAtan", [atan(Decimal(j) / 32) for j in range(33)])
