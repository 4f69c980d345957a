#!/usr/bin/env python3
"""Kelm against ngspice on every example circuit, on the same circuit and the same step.

For each example of examples/ that is a circuit (a single MNA graph), one second of a 1 kHz
sine at a medium level (the middle one of the levels its ngspice reference is made at) is
simulated twice:

  ngspice   the netlist the reference scripts of tests/data/ build for that example (the tube
            circuits' make_reference.py where there is one, else make_device_references.py's
            conversion of the example's XML), run in batch mode by the trapezoidal rule at a
            fixed step of 1/192000 s (ngspice_fixed_step.py: truncation-error control off);
  kelm      `kelm render --system examples/NAME.xml` of the same sine as a 192 kHz WAV.

Each run is timed by the CPU time (user + system) the child process used, so that other work
on the machine counts as little as it can; each example's two simulators run one after the
other, round after round, and the best round of each is kept. Both also run the first START
seconds alone: less those, the ratio is that of the rest of the second, without either
side's start-up (parsing, the operating point, kelm's tube tables). ngspice's own counts show
whether it held the step (192000 steps and its few short ones at the start); the last two
periods of the first output of each are compared, as the reference tests compare them, to
show the two ran the same circuit.

Prints a Markdown table. Run from anywhere:
  bench/ngspice_side_by_side.py [--kelm build/kelm] [--rounds 2] [--only NAME]... [--timeout 600]
"""
import argparse
import array
import glob
import math
import os
import re
import resource
import runpy
import struct
import subprocess
import sys
import tempfile
import types
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DATA = os.path.join(ROOT, "tests", "data")
sys.path.insert(0, DATA)
import make_device_references as devices  # noqa: E402
import ngspice_fixed_step as fixed  # noqa: E402
import ngspice_tubes as tubes  # noqa: E402

RATE = 192000
FREQUENCY = 1000
PERIODS = 2  # compared at the end of the run
START = 0.002  # seconds of the short runs that measure each side's cost of starting up

# The examples no reference is made for, and the levels (V) they are run at here.
LEVELS = {
    "triode-stage": 1.0,
    "pentode-stage": 5.0,
    "big-muff": 0.05,
    "baxandall": 0.5,
}


def is_circuit(path):
    graphs = ET.parse(path).getroot().findall(".//Graph")
    return len(graphs) == 1 and graphs[0].get("Type") == "MNA"


def tube_reference(name):
    """The make_reference.py module of a tube circuit that gives its netlist (TITLE, body()),
    or None (no script, or one that writes its reference its own way)."""
    path = os.path.join(DATA, name, "make_reference.py")
    if not os.path.exists(path):
        return None
    module = runpy.run_path(path, run_name="reference_" + name.replace("-", "_"))
    if "TITLE" not in module or "body" not in module:
        return None
    return types.SimpleNamespace(**module)


def level_of(name):
    """The middle one of the levels the example's reference is made at, else its own level here."""
    if name in LEVELS:
        return LEVELS[name]
    ref = tube_reference(name)
    levels = ref.LEVELS if ref is not None else devices.CIRCUITS.get(name)
    if isinstance(levels, tuple):  # with a settling time of its own
        levels = levels[0]
    return levels[len(levels) // 2] if levels else None


def circuit(name, level):
    """The example's netlist without analysis (its input a sine of LEVEL V from time 0) and its
    output nodes, as the reference scripts write it."""
    sine = f"SIN(0 {level!r} {FREQUENCY})"
    ref = tube_reference(name)
    if ref is not None:
        return tubes.circuit(ref.TITLE, ref.body(), sine), ref.OUTPUTS
    lines, _, outputs = devices.elements(os.path.join(ROOT, "examples", name + ".xml"), level)
    return "\n".join(lines) + "\n", outputs


def ngspice_netlist(body, outputs, seconds, reltol, out_file):
    """The transient run: fixed step, only the outputs kept, the last periods written, and
    ngspice's counts of steps and iterations printed."""
    start = max(seconds - PERIODS / FREQUENCY - 2.0 / RATE, 0.0)
    return body + "\n".join([
        f".options {fixed.OPTIONS} reltol={reltol} itl1=1000 itl4=100", ".control",
        "save " + " ".join(f"v({o})" for o in outputs),
        *fixed.tran(RATE, seconds, start, out_file, f"v({outputs[0]})"),
        "rusage tranpoints traniter", ".endc", ".end"]) + "\n"


def timed(command, timeout):
    """Runs COMMAND; (CPU seconds of the child, user + system, and its completed process), or
    (None, None) when it ran out of time."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    try:
        run = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
    except subprocess.TimeoutExpired:
        return None, None
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime), run


def write_wav(path, samples):
    """A mono 32-bit float WAV at RATE."""
    data = array.array("f", samples)
    if sys.byteorder == "big":
        data.byteswap()
    data = data.tobytes()
    fmt = struct.pack("<HHIIHH", 3, 1, RATE, RATE * 4, 4, 32)
    body = b"WAVE" + b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data
    with open(path, "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", len(body)) + body)


def read_wav(path):
    """The first channel of a 32-bit float WAV."""
    raw = open(path, "rb").read()
    pos, channels = 12, 1
    while pos + 8 <= len(raw):
        tag, size = raw[pos:pos + 4], struct.unpack("<I", raw[pos + 4:pos + 8])[0]
        if tag == b"fmt ":
            form, channels = struct.unpack("<HH", raw[pos + 8:pos + 12])
            bits = struct.unpack("<H", raw[pos + 22:pos + 24])[0]
            if form not in (3, 0xFFFE) or bits != 32:
                raise ValueError(f"{path}: not 32-bit float")
        elif tag == b"data":
            data = array.array("f", raw[pos + 8:pos + 8 + size])
            if sys.byteorder == "big":
                data.byteswap()
            return data[::channels]
        pos += 8 + size + (size & 1)
    raise ValueError(f"{path}: no data")


def counts(log):
    """ngspice's transient steps and Newton iterations, from its rusage lines."""
    points = re.search(r"Transient timepoints\s*=\s*(\d+)", log)
    iterations = re.search(r"Transient iterations\s*=\s*(\d+)", log)
    return (int(points.group(1)) if points else None, int(iterations.group(1)) if iterations else None)


def best(a, b):
    return b if a is None else min(a, b)


def bench(name, args, work):
    row = dict(name=name, level=level_of(name), spice=None, kelm=None, spice_start=None, kelm_start=None,
               points=None, iterations=None, difference=None, note="")
    if row["level"] is None:
        row["note"] = "no level given"
        return row
    try:
        body, outputs = circuit(name, row["level"])
    except SystemExit as e:  # the conversion names what has no SPICE counterpart
        row["note"] = str(e)
        return row
    directory = os.path.join(work, name)
    os.makedirs(directory, exist_ok=True)
    path = {f: os.path.join(directory, f) for f in ("circuit.cir", "tran.txt", "in.wav", "out.wav",
                                                      "start.cir", "start.txt", "start.wav", "start-out.wav")}
    with open(path["circuit.cir"], "w") as f:
        f.write(ngspice_netlist(body, outputs, args.seconds, args.reltol, path["tran.txt"]))
    with open(path["start.cir"], "w") as f:
        f.write(ngspice_netlist(body, outputs, START, args.reltol, path["start.txt"]))
    system = os.path.join(ROOT, "examples", name + ".xml")

    def spice(cir, written):
        """CPU seconds and output of an ngspice run, or None with the reason in the row's note."""
        if os.path.exists(written):
            os.remove(written)
        seconds, run = timed(["ngspice", "-b", cir], args.timeout)
        if seconds is None:
            row["note"] = f"ngspice ran out of time ({args.timeout:g} s)"
        elif not os.path.exists(written):
            row["note"] = "ngspice failed: " + ((run.stdout + run.stderr).strip().splitlines() or [""])[-1]
        else:
            return seconds, run.stdout + run.stderr
        return None, None

    def kelm(wav_in, wav_out):
        seconds, run = timed([args.kelm, "render", "--system", system, "--in", wav_in, "--out", wav_out], args.timeout)
        if seconds is None:
            row["note"] = f"kelm ran out of time ({args.timeout:g} s)"
        elif run.returncode != 0:
            row["note"] = "kelm render failed: " + (run.stderr.strip().splitlines() or [""])[-1]
        else:
            return seconds
        return None

    grid = None  # (first, offset, values) of ngspice's last periods
    spice_failed = False
    for round_ in range(args.rounds):
        if not spice_failed:
            seconds, log = spice(path["circuit.cir"], path["tran.txt"])
            spice_failed = seconds is None
            if seconds is not None:
                row["spice"] = best(row["spice"], seconds)
                row["points"], row["iterations"] = counts(log)
                try:
                    grid = fixed.on_grid(fixed.read_wrdata(path["tran.txt"]), RATE, PERIODS * RATE // FREQUENCY, name)
                except SystemExit as e:  # a step was cut: the time still counts, the comparison not
                    row["note"] = str(e)
                seconds, _ = spice(path["start.cir"], path["start.txt"])
                if seconds is not None:
                    row["spice_start"] = best(row["spice_start"], seconds)
        if round_ == 0:
            # The input on ngspice's grid, as the reference tests drive it: sample n at (n + offset) / RATE.
            offset = grid[1] if grid else 0.0
            sine = [row["level"] * math.sin(2 * math.pi * FREQUENCY * (n + offset) / RATE)
                    for n in range(int(round(args.seconds * RATE)))]
            write_wav(path["in.wav"], sine)
            write_wav(path["start.wav"], sine[:int(round(START * RATE))])
        seconds = kelm(path["in.wav"], path["out.wav"])
        if seconds is None:
            break
        row["kelm"] = best(row["kelm"], seconds)
        seconds = kelm(path["start.wav"], path["start-out.wav"])
        if seconds is not None:
            row["kelm_start"] = best(row["kelm_start"], seconds)
    if grid and row["kelm"] is not None:
        first, _, values = grid
        ours = read_wav(path["out.wav"])[first:first + len(values)]
        swing = max(values) - min(values)
        if len(ours) == len(values) and swing > 0:
            row["difference"] = max(abs(a - b) for a, b in zip(ours, values)) / swing
    return row


def table(rows, seconds):
    lines = ["| example | level (V) | ngspice CPU s | kelm CPU s | ratio | kelm real-time factor "
             "| ratio without start-up | kelm start-up s | ngspice steps (Newton iterations a step) "
             "| largest difference (of the swing) |",
             "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|"]

    def cell(value, form):
        return form % value if value is not None else "-"

    for r in rows:
        ratio = r["spice"] / r["kelm"] if r["spice"] is not None and r["kelm"] else None
        realtime = seconds / r["kelm"] if r["kelm"] else None
        # Both sides less their runs of START seconds: the ratio of the rest of the second alone.
        marginal = None
        if None not in (r["spice"], r["kelm"], r["spice_start"], r["kelm_start"]) and r["kelm"] > r["kelm_start"]:
            marginal = (r["spice"] - r["spice_start"]) / (r["kelm"] - r["kelm_start"])
        steps = "-"
        if r["points"]:
            steps = "%d" % r["points"] + (" (%.2f)" % (r["iterations"] / r["points"]) if r["iterations"] else "")
        difference = 100 * r["difference"] if r["difference"] is not None else None
        lines.append("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |" % (
            r["name"], cell(r["level"], "%g"), cell(r["spice"], "%.2f"), cell(r["kelm"], "%.3f"),
            cell(ratio, "%.0fx"), cell(realtime, "%.0fx"), cell(marginal, "%.0fx"), cell(r["kelm_start"], "%.3f"),
            steps, cell(difference, "%.3f %%")))
    notes = [f"- {r['name']}: {r['note']}" for r in rows if r["note"]]
    return "\n".join(lines + ([""] + notes if notes else []))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--kelm", default=os.path.join(ROOT, "build", "kelm"), help="the kelm binary (build/kelm)")
    parser.add_argument("--rounds", type=int, default=2, help="runs of each, the best kept (2)")
    parser.add_argument("--only", action="append", metavar="NAME", help="this example only (repeatable)")
    parser.add_argument("--timeout", type=float, default=600, help="seconds a single run may take (600)")
    parser.add_argument("--seconds", type=float, default=1.0, help="seconds of audio (1)")
    parser.add_argument("--reltol", type=float, default=1e-3,
                        help="ngspice's relative tolerance of its Newton iteration (1e-3, its own default)")
    parser.add_argument("--keep", metavar="DIR", help="leave the netlists and WAV files in DIR")
    args = parser.parse_args()
    if not os.access(args.kelm, os.X_OK):
        sys.exit(f"{args.kelm}: no kelm binary (build it with scripts/build.sh build)")
    examples = glob.glob(os.path.join(ROOT, "examples", "*.xml"))
    names = sorted(os.path.basename(p)[:-4] for p in examples if is_circuit(p))
    if args.only:
        unknown = [n for n in args.only if n not in names]
        if unknown:
            sys.exit("not an example circuit: " + ", ".join(unknown) + " (there are: " + ", ".join(names) + ")")
        names = [n for n in names if n in args.only]
    rows = []
    with tempfile.TemporaryDirectory() as tmp:
        work = args.keep or tmp
        for name in names:
            print(f"{name} ...", file=sys.stderr, flush=True)
            rows.append(bench(name, args, work))
    print(f"{args.seconds:g} s of a 1 kHz sine at {RATE} Hz; ngspice (trapezoidal rule, fixed step 1/{RATE} s, "
          f"reltol={args.reltol:g}) and kelm render; CPU seconds (user + system), best of {args.rounds}; "
          f"without start-up: both less a run of {1000 * START:g} ms\n")
    print(table(rows, args.seconds))


if __name__ == "__main__":
    main()
