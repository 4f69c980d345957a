#!/usr/bin/env python3
"""The examples' benchmark (BM_Example192k) of two kelm_bench builds, run alternately in one
session, the better of the rounds for each row: real-time factor and iterations per sample.

Usage: bench/examples_side_by_side.py BEFORE/kelm_bench AFTER/kelm_bench [ROUNDS] [FILTER]
Each build reads the examples of its own checkout, so a changed example counts as part of
the change."""
import re
import subprocess
import sys


def run(binary, pattern):
    out = subprocess.run([binary, "--benchmark_filter=" + pattern, "--benchmark_min_time=0.5"],
                         capture_output=True, text=True, check=True).stdout
    rows = {}
    for line in out.splitlines():
        m = re.match(r"BM_Example192k/(\S+)\s.*?(?:iterations_per_sample=([\d.]+))?\s+x_real_time=([\d.]+)", line)
        if m:
            rows[m.group(1)] = (float(m.group(3)), float(m.group(2)) if m.group(2) else None)
    return rows


def main():
    before, after = sys.argv[1], sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    pattern = "BM_Example192k/" + (sys.argv[4] if len(sys.argv) > 4 else "")
    best = {before: {}, after: {}}
    for _ in range(rounds):
        for binary in (before, after):
            for name, (factor, iterations) in run(binary, pattern).items():
                kept = best[binary].get(name)
                if kept is None or factor > kept[0]:
                    best[binary][name] = (factor, iterations)
    print("| example/level | before | after | ratio | iterations per sample (before / after) |")
    print("|---|---:|---:|---:|---:|")
    fmt = lambda it: "%.2f" % it if it is not None else ""
    for name in sorted(set(best[before]) | set(best[after])):
        b, a = best[before].get(name), best[after].get(name)
        if not b or not a:
            continue
        print("| %s | %.1fx | %.1fx | %.2f | %s / %s |" % (name, b[0], a[0], a[0] / b[0], fmt(b[1]), fmt(a[1])))


if __name__ == "__main__":
    main()
