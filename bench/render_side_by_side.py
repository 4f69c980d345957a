#!/usr/bin/env python3
"""Two builds of kelm side by side on every example circuit: an earlier commit against today's.

For each example of examples/ that is a circuit, one second of a 1 kHz sine at 192 kHz, at
the level bench/ngspice_side_by_side.py runs it at, goes through `kelm render --system` of
each build, the two alternately, round after round; the best CPU time (user + system of the
child) of each is kept. Both also render the first 2 ms alone, and the ratio without start-up
compares the rest of the second. An example the earlier build cannot read (an element it does
not know) is listed with its error. The largest difference of the two outputs, as a share of
the swing, shows whether they simulated the same thing.

Prints a Markdown table. Build the earlier commit in a worktree first, e.g.
  git worktree add ../before 22bd69d && cmake -S ../before -B ../before/build && cmake --build ../before/build -j2 --target kelm
  bench/render_side_by_side.py --before ../before/build/kelm [--after build/kelm] [--rounds 3] [--only NAME]...
"""
import argparse
import glob
import math
import os
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import ngspice_side_by_side as common  # noqa: E402

ROOT = common.ROOT


def render(kelm, system, wav_in, wav_out, timeout):
    """CPU seconds of one render, or (None, its error)."""
    if os.path.exists(wav_out):
        os.remove(wav_out)
    seconds, run = common.timed([kelm, "render", "--system", system, "--in", wav_in, "--out", wav_out], timeout)
    if seconds is None:
        return None, f"ran out of time ({timeout:g} s)"
    if run.returncode != 0 or not os.path.exists(wav_out):
        return None, ((run.stderr + run.stdout).strip().splitlines() or ["failed"])[-1]
    return seconds, None


def bench(name, args, work):
    level = common.level_of(name)
    row = dict(name=name, level=level, before=None, after=None, before_start=None, after_start=None,
               difference=None, note="")
    if level is None:
        row["note"] = "no level"
        return row
    system = os.path.join(ROOT, "examples", name + ".xml")
    d = os.path.join(work, name)
    os.makedirs(d, exist_ok=True)
    wav = {k: os.path.join(d, k + ".wav") for k in ("in", "start", "before", "after", "before-s", "after-s")}
    n = int(args.seconds * common.RATE)
    sine = [level * math.sin(2 * math.pi * common.FREQUENCY * i / common.RATE) for i in range(n)]
    common.write_wav(wav["in"], sine)
    common.write_wav(wav["start"], sine[:int(common.START * common.RATE)])
    for _ in range(args.rounds):
        for side, kelm in (("before", args.before), ("after", args.after)):
            if row["note"].startswith(side):
                continue
            seconds, error = render(kelm, system, wav["in"], wav[side], args.timeout)
            if seconds is None:
                row["note"] = f"{side}: {error}"
                continue
            row[side] = common.best(row[side], seconds)
            seconds, _ = render(kelm, system, wav["start"], wav[side + "-s"], args.timeout)
            if seconds is not None:
                row[side + "_start"] = common.best(row[side + "_start"], seconds)
    if row["before"] is not None and row["after"] is not None:
        a, b = common.read_wav(wav["before"]), common.read_wav(wav["after"])
        swing = (max(a) - min(a)) or 1.0
        row["difference"] = max(abs(x - y) for x, y in zip(a, b)) / swing
    return row


def table(rows, seconds):
    def cell(value, form):
        return "" if value is None else form.format(value)

    lines = ["| example | level (V) | before CPU s | after CPU s | ratio | after real-time factor | "
             "ratio without start-up | largest difference (of the swing) |",
             "|---|---:|---:|---:|---:|---:|---:|---:|"]
    for r in rows:
        ratio = rest = factor = None
        if r["before"] and r["after"]:
            ratio = r["before"] / r["after"]
            if r["before_start"] is not None and r["after_start"] is not None:
                after_rest = r["after"] - r["after_start"]
                if after_rest > 0:
                    rest = (r["before"] - r["before_start"]) / after_rest
        if r["after"]:
            factor = seconds / r["after"]
        lines.append("| " + " | ".join([
            r["name"], cell(r["level"], "{:g}"), cell(r["before"], "{:.3f}"), cell(r["after"], "{:.3f}"),
            cell(ratio, "{:.2f}x"), cell(factor, "{:.1f}x"), cell(rest, "{:.2f}x"),
            cell(None if r["difference"] is None else 100 * r["difference"], "{:.3f} %")]) +
            (" " + r["note"] if r["note"] else "") + " |")
    return "\n".join(lines)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--before", required=True, help="the earlier build's kelm")
    p.add_argument("--after", default=os.path.join(ROOT, "build", "kelm"))
    p.add_argument("--rounds", type=int, default=3)
    p.add_argument("--seconds", type=float, default=1.0)
    p.add_argument("--timeout", type=float, default=300)
    p.add_argument("--only", action="append", default=[])
    args = p.parse_args()
    names = sorted(os.path.basename(f)[:-4] for f in glob.glob(os.path.join(ROOT, "examples", "*.xml"))
                   if common.is_circuit(f))
    if args.only:
        names = [n for n in names if n in args.only]
    with tempfile.TemporaryDirectory() as work:
        rows = [bench(n, args, work) for n in names]
    print(f"{args.seconds:g} s of a 1 kHz sine at 192 kHz; CPU seconds (user + system) of `kelm render`, "
          f"best of {args.rounds}, the two builds alternately.\n")
    print(table(rows, args.seconds))


if __name__ == "__main__":
    main()
