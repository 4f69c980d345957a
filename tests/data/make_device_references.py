#!/usr/bin/env python3
"""Reference data for the semiconductor and winding circuits, from ngspice.

Each circuit of examples/ named below is turned into a SPICE netlist with the same elements,
values and model cards (the cards read from circuit/devices/SemiconductorModels.cpp, with any
parameter an element overrides), run by ngspice with the trapezoidal rule at a fixed step of
1/192000 s (its truncation-error control switched off: see ngspice_fixed_step.py), and written
to tests/data/devices/NAME.txt:

  op NODE VOLTS                 the operating point, one line per named node
  tran AMPLITUDE FIRST OFFSET V0 V1 ...
                                the output over the last two periods of a 1 kHz sine of that
                                amplitude (V) from time 0, one value a sample: Vk at time
                                (FIRST + k + OFFSET) / 192000 s, on ngspice's grid, which lies
                                OFFSET of a sample after the samples

The tests read these files; they do not run ngspice. Run from the repository's root:
  python3 tests/data/make_device_references.py [NAME...]
"""
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import ngspice_fixed_step as fixed  # noqa: E402
import ngspice_tubes as tubes  # noqa: E402

RATE = 192000
FREQUENCY = 1000
SETTLE = 0.25  # seconds before the stored periods, unless a circuit gives its own
PERIODS = 2

# Circuit: amplitudes (V), and optionally its own settling time (s). The wah's output coupling
# (1 uF into 100k) holds a start-up offset for some tenths of a second.
CIRCUITS = {
    "diode-clipper": [0.3, 1.0, 4.0],
    "opamp-overdrive": [0.01, 0.05, 0.3],
    "fuzz-face": [0.01, 0.05, 0.2],
    "fuzz-face-silicon": [0.01, 0.05, 0.2],
    "jfet-booster": [0.01, 0.1, 0.3],
    "wah": ([0.1, 0.5, 1.0], 1.0),
    "transformer-stage": [0.01, 0.05, 0.2],
}

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def model_cards():
    """The built-in cards: name -> (kind, {parameter: value text})."""
    text = open(os.path.join(ROOT, "circuit/devices/SemiconductorModels.cpp")).read()
    cards = {}
    for m in re.finditer(r'\{"([^"]+)",\s*"([A-Z]+)",\s*((?:"[^"]*"\s*)+)\}', text):
        params = "".join(re.findall(r'"([^"]*)"', m.group(3)))
        cards[m.group(1)] = (m.group(2), dict(p.split("=") for p in params.split()))
    return cards


def node(name):
    return "0" if name in ("GND", "0") else name


def elements(path, amplitude):
    """The circuit of an example as SPICE lines, its input a sine of AMPLITUDE (V) at FREQUENCY
    from time 0: (the element and model lines, the nodes in the order named, the output nodes).
    Tubes and potentiometers are written as the tube circuits' references write them."""
    cards = model_cards()
    graph = ET.parse(path).getroot().find(".//Graph")
    lines, models, named = ["* " + os.path.basename(path)], [], []
    for e in graph.findall("Element"):
        kind, name = e.get("Type"), e.get("Name")
        props = dict(e.find("Properties").attrib) if e.find("Properties") is not None else {}
        nodes = [node(n.get("Name")) for n in e.findall("Node")]
        named += [n for n in nodes if n != "0" and n not in named]
        if kind == "VoltageInputSource":
            lines.append(f"V{name} {nodes[0]} {nodes[1]} DC 0 SIN(0 {amplitude} {FREQUENCY})")
        elif kind == "Resistor":
            lines.append(f"R{name} {nodes[0]} {nodes[1]} {props['Resistance']}")
        elif kind == "Capacitor":
            lines.append(f"C{name} {nodes[0]} {nodes[1]} {props['Capacitance']}")
        elif kind == "Battery":
            lines.append(f"V{name} {nodes[0]} {nodes[1]} DC {props['Voltage']}")
        elif kind == "Inductor":
            lines.append(f"L{name} {nodes[0]} {nodes[1]} {props['Inductance']}")
        elif kind == "Potentiometer":
            lines += tubes.potentiometer(name, *nodes, float(props["Resistance"]), float(props["Wiper"])).splitlines()
        elif kind in ("Triode", "Pentode"):
            if set(props) != {"Type"}:
                raise SystemExit(f"{path}: {name}: a tube with parameters of its own has no SPICE counterpart here")
            lines += (tubes.triode if kind == "Triode" else tubes.pentode)(name, *nodes, props["Type"]).splitlines()
        elif kind == "Transformer":
            l1, l2 = props["Inductances"].split("|")
            lines += [f"L{name}p {nodes[0]} {nodes[1]} {l1}", f"L{name}s {nodes[2]} {nodes[3]} {l2}",
                      f"K{name} L{name}p L{name}s {props['Coupling']}"]
        elif kind == "OpAmp":
            # The engine's op-amp is a nullor: a gain large enough to hold its inputs together.
            lines.append(f"E{name} {nodes[1]} 0 {nodes[0]} {nodes[2]} 1e9")
        elif kind in ("Diode", "BJT", "JFET", "MOSFET"):
            card_kind, params = cards[props.pop("Model")] if "Model" in props else (None, {})
            polarity = props.pop("Polarity", None)
            spice_kind = {"Diode": lambda: "D",
                          "BJT": lambda: polarity or card_kind or "NPN",
                          "JFET": lambda: {"N": "NJF", "P": "PJF"}.get(polarity, card_kind or "NJF"),
                          "MOSFET": lambda: {"N": "NMOS", "P": "PMOS"}.get(polarity, card_kind or "NMOS")}[kind]()
            size = ""
            if kind == "MOSFET":
                size = " W=%s L=%s" % (props.pop("W", "1e-4"), props.pop("L", "1e-4"))
            params = dict(params, **props)
            models.append(f".model M_{name} {spice_kind}(" + " ".join(f"{k}={v}" for k, v in params.items()) + ")")
            prefix = {"Diode": "D", "BJT": "Q", "JFET": "J", "MOSFET": "M"}[kind]
            body = " " + nodes[2] if kind == "MOSFET" else ""
            lines.append(f"{prefix}{name} {' '.join(nodes)}{body} M_{name}{size}")
        else:
            raise SystemExit(f"{path}: no SPICE counterpart for {kind}")
    outputs = [node(n.get("Name")) for n in graph.findall("Output/Node")]
    return lines + models, named, outputs


def netlist(path, amplitude, op_file, tran_file, settle):
    lines, named, outputs = elements(path, amplitude)
    stop = settle + PERIODS / FREQUENCY
    # The tolerances of the Newton iteration: tighter ones (reltol=1e-6, or abstol=1e-14 A) are
    # more than ngspice's iteration meets at some edges of the germanium fuzz and the clipping of
    # the overdrive, where it then cuts the step and leaves the grid. (The silicon fuzz, which
    # keeps the grid at either, differs between them by 0.03 % of its swing at most.)
    lines += [f".options {fixed.OPTIONS} reltol=1e-5 abstol=1e-12 vntol=1e-9 gmin=1e-12 itl1=1000 itl4=100",
              ".control", "op", "wrdata %s %s" % (op_file, " ".join(f"v({n})" for n in named)),
              *fixed.tran(RATE, stop, settle - 2.0 / RATE, tran_file, f"v({outputs[0]})"), ".endc", ".end"]
    return "\n".join(lines) + "\n", named


def run(name, amplitude, tmp, settle):
    cir, op_file, tran_file = (os.path.join(tmp, x) for x in ("c.cir", "op.txt", "tran.txt"))
    text, named = netlist(os.path.join(ROOT, "examples", name + ".xml"), amplitude, op_file, tran_file, settle)
    open(cir, "w").write(text)
    subprocess.run(["ngspice", "-b", cir], capture_output=True, text=True)
    op = open(op_file).read().split()
    values = [float(op[2 * i + 1]) for i in range(len(named))]  # wrdata: time, value pairs
    tran = fixed.on_grid(fixed.read_wrdata(tran_file), RATE, PERIODS * RATE // FREQUENCY, f"{name} at {amplitude} V")
    return dict(zip(named, values)), tran


def main():
    out_dir = os.path.join(ROOT, "tests/data/devices")
    os.makedirs(out_dir, exist_ok=True)
    for name, levels in CIRCUITS.items():
        if len(sys.argv) > 1 and name not in sys.argv[1:]:
            continue
        amplitudes, settle = levels if isinstance(levels, tuple) else (levels, SETTLE)
        with tempfile.TemporaryDirectory() as tmp:
            lines = []
            for k, a in enumerate(amplitudes):
                op, (first, offset, tran) = run(name, a, tmp, settle)
                if k == 0:
                    lines += [f"op {n} {v:.9g}" for n, v in op.items()]
                lines.append(f"tran {a} {first} {offset:.6f} " + " ".join(f"{v:.7g}" for v in tran))
                print(f"{name} at {a} V: {len(tran)} samples from {first}, offset {offset:.4f}")
        open(os.path.join(out_dir, name + ".txt"), "w").write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
