#!/usr/bin/env python3
"""Reference runs of the netlists beside this script in ngspice, for tests/netlist.

Each case runs one netlist as it stands, except for its .param values and the amplitude
and frequency of its input source's SIN, with the trapezoidal rule at a fixed step of one
sample at the rate the test renders at (the truncation-error control switched off, so
that after its first steps ngspice steps exactly one sample at a time). It writes
CASE.ref: the operating point of some nodes, the offset of ngspice's time grid against
the samples (its first steps are shorter, so its grid lies a fraction of a sample off),
and the output over a window at the end of the run. Run it from anywhere:
  python3 tests/data/netlist/make_references.py [CASE...]
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
import ngspice_fixed_step as fixed  # noqa: E402

# name, netlist, rate (Hz), input amplitude (V) and frequency (Hz), .param values (and the
# controls of the same positions), run length and window (s), operating-point nodes
CASES = [
    ("tonestack-100", "tonestack.cir", 48000, 1.0, 100, {}, {}, 0.4, 0.02, []),
    ("tonestack-1k", "tonestack.cir", 48000, 1.0, 1000, {}, {}, 0.4, 0.005, []),
    ("tonestack-6k", "tonestack.cir", 48000, 1.0, 6000, {}, {}, 0.4, 0.002, []),
    ("tonestack-knobs", "tonestack.cir", 48000, 1.0, 400, {"treble": 0.8, "bass": 0.2, "middle": 0.7},
     {"Treble": 0.8, "Bass": 0.2, "Middle": 0.7}, 0.4, 0.005, []),
    ("preamp-small", "preamp.cir", 192000, 0.02, 1000, {}, {}, 0.3, 0.001, ["p1", "k1", "p2", "k2", "b1"]),
    ("preamp-large", "preamp.cir", 192000, 1.0, 1000, {"vol": 0.7}, {"Volume": 0.7}, 0.3, 0.001, []),
    ("gainstage", "gainstage.cir", 48000, 0.1, 1000, {}, {}, 0.5, 0.002, ["out", "ref", "n", "a"]),
    ("overdrive-small", "overdrive.cir", 192000, 0.01, 1000, {}, {}, 0.3, 0.001, ["out", "ref", "n", "tone"]),
    ("overdrive-large", "overdrive.cir", 192000, 0.5, 1000, {"drive": 0.8}, {"Drive": 0.8}, 0.3, 0.001, []),
    ("fuzz", "fuzz.cir", 192000, 0.05, 500, {}, {}, 0.3, 0.002, ["c1", "b1", "c2", "e2"]),
    ("booster", "booster.cir", 192000, 0.2, 1000, {}, {}, 0.3, 0.001, ["d", "s", "g"]),
    ("wah", "wah.cir", 192000, 0.02, 2000, {}, {}, 0.3, 0.001, ["c1", "e1", "b1", "e2"]),
]


def netlist_for(text, amplitude, frequency, params, rate, seconds, window, op_nodes, output, workdir):
    lines = []
    for line in text.splitlines():
        low = line.lower()
        if low.strip() == ".end":
            continue
        if low.startswith(".param"):
            for name, value in params.items():
                line, n = re.subn(r"(?i)\b%s\s*=\s*[^\s]+" % re.escape(name), "%s=%r" % (name, value), line)
        if low.startswith("vin "):
            line = re.sub(r"(?i)SIN\([^)]*\)", "SIN(0 %r %r)" % (amplitude, frequency), line)
        lines.append(line)
    start = seconds - window - 2.0 / rate
    lines += [
        ".options %s reltol=1e-6 abstol=1e-12 vntol=1e-9 itl4=100" % fixed.OPTIONS,
        ".control",
    ]
    if op_nodes:
        lines += ["op", "wrdata %s %s" % (os.path.join(workdir, "op.txt"), " ".join("v(%s)" % n for n in op_nodes))]
    lines += fixed.tran(rate, seconds, start, os.path.join(workdir, "tran.txt"), "v(%s)" % output)
    lines += [".endc", ".end"]
    return "\n".join(lines) + "\n"


def run(case):
    name, file, rate, amplitude, frequency, params, controls, seconds, window, op_nodes = case
    text = open(os.path.join(HERE, file)).read()
    output = re.search(r"(?im)^\.print\s+tran\s+v\((\w+)\)", text).group(1)
    work = tempfile.mkdtemp()
    try:
        for f in os.listdir(HERE):
            if f.endswith(".inc"):
                shutil.copy(os.path.join(HERE, f), work)
        cir = os.path.join(work, "run.cir")
        with open(cir, "w") as f:
            f.write(netlist_for(text, amplitude, frequency, params, rate, seconds, window, op_nodes, output, work))
        subprocess.run(["ngspice", "-b", cir], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        op = []
        if op_nodes:
            values = open(os.path.join(work, "op.txt")).read().split()
            op = [float(values[2 * i + 1]) for i in range(len(op_nodes))]
        rows = fixed.read_wrdata(os.path.join(work, "tran.txt"))
    finally:
        shutil.rmtree(work)
    index0, offset, picked = fixed.on_grid(rows, rate, int(round(window * rate)), name)
    out = os.path.join(HERE, name + ".ref")
    with open(out, "w") as f:
        f.write("# %s by make_references.py: ngspice, trapezoidal rule, a fixed step of 1/%d s\n" % (file, rate))
        f.write("netlist %s\nrate %d\ninput %r %r\noffset %.6f\n" % (file, rate, amplitude, frequency, offset))
        for c, v in controls.items():
            f.write("control %s %r\n" % (c, v))
        for n, v in zip(op_nodes, op):
            f.write("op %s %.9g\n" % (n, v))
        f.write("first %d\n" % index0)
        for v in picked:
            f.write("%.8g\n" % v)
    print("%s: %d samples from %d, offset %.4f, swing %.4g V" % (out, len(picked), index0, offset,
                                                                 max(picked) - min(picked)))


# The resistances of these netlists as ngspice reads them, for the tests of values,
# parameters and subcircuits: name (ngspice's flattened name) and value.
VALUE_NETLISTS = {
    "values": ["r%d" % i for i in range(1, 41)],
    "scope": ["r.xo.x1.r1", "r.xo.x2.r1", "r.xo.x3.r1", "r.xo.r2", "r.xo.xd.r3", "r.xo.r.xl.r4",
              "r.xp.x1.r1", "r.xp.x2.r1", "r.xp.x3.r1", "r.xp.r2", "r.xp.xd.r3", "r.xp.r.xl.r4", "r5"],
}


def values(name):
    text = open(os.path.join(HERE, name + ".cir")).read()
    text = re.sub(r"(?im)^\.end\s*$", "", text)
    control = ["set numdgt=12", "op"] + ["print @%s[resistance]" % r for r in VALUE_NETLISTS[name]]
    text += ".control\n" + "\n".join(control) + "\n.endc\n.end\n"
    work = tempfile.mkdtemp()
    try:
        cir = os.path.join(work, "run.cir")
        open(cir, "w").write(text)
        out = subprocess.run(["ngspice", "-b", cir], stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout.decode()
    finally:
        shutil.rmtree(work)
    found = dict(re.findall(r"@([\w.]+)\[resistance\]\s*=\s*(\S+)", out))
    path = os.path.join(HERE, name + ".ref")
    with open(path, "w") as f:
        f.write("# %s.cir by make_references.py: each resistance as ngspice reads it\n" % name)
        for r in VALUE_NETLISTS[name]:
            if r not in found:
                sys.exit("%s: ngspice gives no value for %s\n%s" % (name, r, out))
            f.write("%s %s\n" % (r, found[r]))
    print("%s: %d values" % (path, len(VALUE_NETLISTS[name])))


if __name__ == "__main__":
    wanted = sys.argv[1:]
    for v in VALUE_NETLISTS:
        if not wanted or v in wanted:
            values(v)
    for case in CASES:
        if not wanted or case[0] in wanted:
            run(case)
