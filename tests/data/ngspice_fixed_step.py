"""ngspice's transient analysis at a fixed step of one sample, for the reference scripts.

ngspice picks its own steps under its truncation-error control; with that control switched off
(a truncation-error tolerance, trtol, so large that no step is ever cut for it) it grows its
first, short steps up to the largest step allowed and then stays there. Given one sample as
that largest step, every point after the start lies one sample after the one before, on a
grid offset from the samples by a fraction of a sample (the sum of the first steps). The
engine steps one sample at a time from its operating point: driven with its input on that
grid, its samples fall on ngspice's points and the two can be compared point for point.

Used by make_device_references.py beside this file and netlist/make_references.py.
"""
import sys

# The options that fix the step; each script adds the tolerances of the Newton iteration.
OPTIONS = "method=trap trtol=1e7"


def tran(rate, stop, start, path, vector):
    """The control lines that run the analysis to STOP (s) at a step and largest step of one
    sample and write VECTOR from START (s) on to PATH, its times in full (wrdata's nine digits
    place a point at one second only to a hundredth of a sample at 192 kHz)."""
    step = 1.0 / rate
    return ["tran %.17g %.17g %.17g %.17g" % (step, stop, start, step), "set numdgt=15",
            "wrdata %s %s" % (path, vector)]


def read_wrdata(path):
    """The rows of a wrdata file of one vector: (time, value) pairs."""
    return [tuple(map(float, line.split()[:2])) for line in open(path) if line.strip()]


def on_grid(rows, rate, count, what):
    """The last COUNT points before the stop as (first, offset, values): ngspice's point k is
    at time (first + k + offset) / rate, 0 <= offset < 1. Exits if the points are not one
    sample apart, which means ngspice cut a step (the Newton iteration failed to converge)."""
    # The last point is the stop itself, which ngspice reaches by a shorter step: left out.
    times = [t * rate for t, _ in rows[:-1]]
    if len(times) < count:
        sys.exit("%s: %d points, %d wanted" % (what, len(times), count))
    times, values = times[-count:], [v for _, v in rows[:-1]][-count:]
    first = int(times[0] // 1)
    offset = times[0] - first
    for k, t in enumerate(times):
        if abs(t - (first + k + offset)) > 1e-3:
            sys.exit("%s: ngspice left the fixed step at sample %d (%.6f)" % (what, first + k, t))
    return first, offset, values
