"""ngspice references for the tube circuits of examples/.

Each circuit's make_reference.py describes its netlist (without the input source) and calls
write_reference(). The tubes are behavioural sources with the equations the engine evaluates:

  triode plate:  Ip = 2/Kg * (Vpk/Kp * ln(1 + exp(Kp (1/mu + (Vgk + Vct)/sqrt(Vpk^2 + Kvb)))))^Ex,
                 0 where Vpk <= 0 or Vgk < VgkMin
  pentode plate: Ip = atan(Vpk/Kvb) * 2/Kg1 * (Vsk/Kp * ln(1 + exp(Kp (1/mu + Vgk/Vsk))))^Ex, 0 where Vsk <= 0
  screen:        Is = (Vsk/mu + Vgk)^1.5 / Kg2 where positive
  grid:          Ig = Igc * (Vgk + Vc)^N where Vgk + Vc > 0

and the parameters of the built-in types below (the same values as circuit/devices/TubeTypes.cpp).
The run: an operating point, then for each input level a 1 kHz sine from the operating point
and the last two periods of the outputs at the engine's instants n/192000, integrated by the
trapezoidal rule at a fixed step of 1/192000 s with reltol 1e-6.

Fixed step: ngspice starts a transient with short steps that double up to the maximum step, so
its points lie a fraction of a step off the multiples of the step; read between them, the
steep edges of a clipped wave would differ by volts. So the local truncation error control is
switched off (trtol 1e9: every step after the start is the maximum step), the grid's offset is
measured on a run with no input, and the sine starts PREROLL steps plus that offset after t = 0.
ngspice's own points are then the engine's samples, its input at each the engine's input.
"""

import os
import re
import subprocess
import tempfile

RATE = 192000
PREROLL = 20  # steps at rest before the sine starts
PERIOD = 192  # samples of 1 kHz at 192 kHz
STORED = 2 * PERIOD

TRIODES = {
    "12AX7": dict(Vct=0.0, Kp=600.0, Kvb=300.0, mu=100.0, Ex=1.4, Kg=1060.0, Vc=0.53, Igc=3.14e-4, N=3.0,
                  VgkMax=4.0, VgkMin=-8.0, VpMax=400.0),
    "12AT7": dict(Vct=0.0, Kp=231.05, Kvb=300.0, mu=77.09, Ex=1.077, Kg=320.1, Vc=0.53, Igc=3.14e-4, N=3.0,
                  VgkMax=4.0, VgkMin=-32.0, VpMax=400.0),
}

PENTODES = {
    "EF86": dict(Kp=222.06, Kvb=4.7, mu=34.9, Ex=1.35, Kg1=2648.1, Kg2=4500.0, Vc=0.53, Igc=3.14e-4, N=3.0,
                 VgkMax=8.0),
    "KT66": dict(Kp=34.89, Kvb=22.3, mu=11.68, Ex=1.197, Kg1=510.9, Kg2=4500.0, Vc=0.53, Igc=3.14e-4, N=3.0,
                 VgkMax=8.0),
}


# The engine also holds the grid voltage at VgkMax (in the plate law, and in the grid law at
# Vgk + Vc = VgkMax) and the plate voltage at VpMax. Written here, those plateaus of zero slope
# stall ngspice's Newton iteration when an iterate lands on them, although the circuits never
# reach them: so the sources leave them out, and write_reference checks over every run that
# no tube came near them (LIMITS: the node pair and the largest voltage allowed between them).
LIMITS = []


def _grid(name, g, k, t):
    LIMITS.append((g, k, t["VgkMax"] - t["Vc"]))
    v = f"(V({g},{k})+{t['Vc']})"
    return f"B{name}g {g} {k} I = {v} > 0 ? {t['Igc']}*pwr({v},{t['N']}) : 0\n"


def triode(name, plate, grid, cathode, tube):
    """A triode of a built-in type as two behavioural current sources."""
    t = TRIODES[tube]
    LIMITS.append((plate, cathode, t["VpMax"]))
    vp = f"max(V({plate},{cathode}),0)"
    x = f"{t['Kp']}*(1/{t['mu']}+(V({grid},{cathode})+{t['Vct']})/sqrt({vp}*{vp}+{t['Kvb']}))"
    e1 = f"({vp}/{t['Kp']})*ln(1+exp(min({x},700)))"
    plate_law = (f"B{name}p {plate} {cathode} I = (V({plate},{cathode}) > 0 && V({grid},{cathode}) >= {t['VgkMin']}) ? "
                 f"2/{t['Kg']}*pwr({e1},{t['Ex']}) : 0\n")
    return plate_law + _grid(name, grid, cathode, t)


def pentode(name, plate, screen, grid, cathode, tube):
    """A pentode of a built-in type as three behavioural current sources."""
    t = PENTODES[tube]
    vs = f"V({screen},{cathode})"
    x = f"{t['Kp']}*(1/{t['mu']}+V({grid},{cathode})/max({vs},1e-9))"
    e1 = f"(max({vs},0)/{t['Kp']})*ln(1+exp(min({x},700)))"
    plate_law = (f"B{name}p {plate} {cathode} I = {vs} > 0 ? "
                 f"atan(V({plate},{cathode})/{t['Kvb']})*2/{t['Kg1']}*pwr({e1},{t['Ex']}) : 0\n")
    u = f"({vs}/{t['mu']}+V({grid},{cathode}))"
    screen_law = f"B{name}s {screen} {cathode} I = {u} > 0 ? pwr({u},1.5)/{t['Kg2']} : 0\n"
    return plate_law + screen_law + _grid(name, grid, cathode, t)


def potentiometer(name, end_a, wiper, end_b, resistance, position):
    """The engine's potentiometer: wiper*R from end a to the wiper, the rest to end b."""
    position = min(max(position, 0.001), 0.999)
    lines = ""
    if end_a != wiper:
        lines += f"R{name}a {end_a} {wiper} {position * resistance!r}\n"
    if end_b != wiper:
        lines += f"R{name}b {wiper} {end_b} {(1 - position) * resistance!r}\n"
    return lines


def tone_stack(source, out, c_treble, treble, r_slope, c, bass):
    """The treble, bass and middle tone stack from node SOURCE to node OUT, loaded by 1 Meg,
    every pot at its middle; the bass and middle pots are variable resistors."""
    return (f"Ct {source} T1 {c_treble}\n" + potentiometer("treble", "T3", out, "T1", treble, 0.5) +
            f"Rslope {source} N {r_slope}\nCb N T3 {c}\n" + potentiometer("bass", "T3", "M", "M", bass, 0.5) +
            f"Cm N M {c}\n" + potentiometer("mid", "M", "0", "0", 25e3, 0.5) + f"Rload {out} 0 1Meg\n")


def circuit(title, body, source=None):
    """The netlist of a circuit (body, driven at node 'in') with its input: a voltage source of
    0 V DC and, if given, the transient SOURCE (e.g. "SIN(0 1 1k)"); no analysis, no .end."""
    return f"{title}\nVin in 0 DC 0{' ' + source if source else ''}\n{body}"


def _ngspice(netlist, workdir):
    path = os.path.join(workdir, "circuit.cir")
    with open(path, "w") as f:
        f.write(netlist)
    # Batch mode may exit non-zero after a .control block; the files written are what count.
    run = subprocess.run(["ngspice", "-b", path], capture_output=True, text=True)
    return run.stdout + run.stderr


def _read_pairs(path):
    with open(path) as f:
        numbers = [float(x) for x in f.read().split()]
    return numbers


def _version():
    out = subprocess.run(["ngspice", "-v"], capture_output=True, text=True).stdout
    m = re.search(r"ngspice-\S+", out)
    return m.group(0) if m else "ngspice"


def _transient(title, body, options, source, outputs, t_stop, workdir):
    """The raw transient points of the whole run: rows of time, the outputs' voltages, and
    the voltage across each pair of LIMITS."""
    step = 1.0 / RATE
    out_file = os.path.join(workdir, "tran.txt")
    if os.path.exists(out_file):
        os.remove(out_file)
    probes = " ".join(f"v({o})" for o in outputs)
    lets = ""
    for i, (a, b, _) in enumerate(LIMITS):
        lets += f"let limit{i} = v({a})-v({b})\n"
        probes += f" limit{i}"
    netlist = (f"{circuit(title, body, source)}{options}.control\n"
               f"tran {step!r} {t_stop!r} 0 {step!r}\n{lets}wrdata {out_file} {probes}\n.endc\n.end\n")
    log = _ngspice(netlist, workdir)
    if not os.path.exists(out_file):
        raise RuntimeError(f"transient with {source} failed:\n" + log)
    numbers = _read_pairs(out_file)
    width = 2 * (len(outputs) + len(LIMITS))
    rows = [[numbers[i]] + numbers[i + 1:i + width:2] for i in range(0, len(numbers), width)]
    for i, (a, b, limit) in enumerate(LIMITS):
        largest = max(row[1 + len(outputs) + i] for row in rows)
        if largest >= limit:
            raise RuntimeError(f"{source}: V({a},{b}) reaches {largest} V, where the engine holds it at {limit} V")
    return [row[:1 + len(outputs)] for row in rows]


def write_reference(out_path, title, body, op_nodes, outputs, levels, frames):
    """Runs the circuit (body: the netlist without the input, driven at node 'in') and writes
    the operating point of op_nodes and, per level, the last STORED samples of each output."""
    step = 1.0 / RATE
    options = ".options method=trap reltol=1e-6 abstol=1e-12 vntol=1e-7 trtol=1e9 itl1=500 itl4=100\n"
    lines = [f"# {title}: ngspice reference written by make_reference.py ({_version()}); do not edit",
             f"rate {RATE}", f"frames {frames}"]
    first = frames - STORED
    with tempfile.TemporaryDirectory() as work:
        op_file = os.path.join(work, "op.txt")
        netlist = (f"{circuit(title, body)}{options}.control\nop\n"
                   f"wrdata {op_file} " + " ".join(f"v({n})" for n in op_nodes) + "\n.endc\n.end\n")
        log = _ngspice(netlist, work)
        values = _read_pairs(op_file)[1::2] if os.path.exists(op_file) else []
        if len(values) != len(op_nodes):
            raise RuntimeError("operating point failed:\n" + log)
        for node, v in zip(op_nodes, values):
            lines.append(f"op {node} {v:.9g}")
        # The same stop time in every run: the first step, and so the grid, follows from it.
        t_stop = (PREROLL + frames + 1) * step
        rest = _transient(title, body, options, "SIN(0 0 1k)", outputs, t_stop, work)
        offsets = [t / step - int(t / step) for t, *_ in rest if 5 * step < t < PREROLL * step]
        if not offsets or max(offsets) - min(offsets) > 1e-6:
            raise RuntimeError(f"no regular grid before the sine starts: {offsets}")
        delay = (PREROLL + offsets[0]) * step
        for level in levels:
            rows = _transient(title, body, options, f"SIN(0 {level} 1k {delay!r})", outputs, t_stop, work)
            at = {round((t - delay) / step): (t, values) for t, *values in rows}
            stored = []
            for n in range(first, frames):
                if n not in at or abs(at[n][0] - delay - n * step) > 1e-3 * step:
                    raise RuntimeError(f"at {level} V no point at sample {n}: the steps were cut")
                stored.append(at[n][1])
            for j, o in enumerate(outputs):
                samples = " ".join(f"{row[j]:.7g}" for row in stored)
                lines.append(f"wave {level!r} {o} {first} {STORED} {samples}")
    with open(out_path, "w") as f:
        f.write("\n".join(lines) + "\n")


def write_beside(script, title, body, op_nodes, outputs, levels, frames=19200):
    """write_reference() into reference.txt in the folder of SCRIPT (a make_reference.py)."""
    write_reference(os.path.join(os.path.dirname(os.path.abspath(script)), "reference.txt"),
                    title, body, op_nodes, outputs, levels, frames)
