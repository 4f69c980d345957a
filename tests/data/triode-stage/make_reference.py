#!/usr/bin/env python3
"""ngspice's run of the 12AX7 stage of examples/triode-stage.xml, with the Koren plate current and
the power-law grid current as behavioural sources; writes reference.txt beside this script.

"op P G K B": the operating point (V). For each input amplitude, "plate AMPLITUDE COUNT" and the
plate voltage at the last COUNT instants n/192000 before 0.3 s (a 1 kHz sine from t = 0,
interpolated onto the engine's samples by ngspice's linearize)."""
import os
import subprocess
import tempfile

AMPLITUDES = [0.1, 1.0, 4.0]
RATE = 192000
PERIOD = 192  # 1 kHz at 192 kHz


def netlist(amplitude, op, tran):
    return ("triode stage\nVin in 0 DC 0 SIN(0 %.12g 1k)\nRg in G 1\nVB B 0 155\nRp B P 100k\n" % amplitude +
            "Rk K 0 1200\nCk K 0 50u\nCpg P G 2.4p\n"
            "Bp P K I = (V(P,K) > 0 && V(G,K) >= -8) ? 2/1060*pwr((min(V(P,K),400)/600)*ln(1+exp(600*(1/100 + "
            "min(V(G,K),4)/sqrt(pwr(min(V(P,K),400),2)+300)))),1.4) : 0\n"
            "Bg G K I = (V(G,K)+0.53 > 0) ? 3.14e-4*pwr(min(V(G,K)+0.53,4),3) : 0\n"
            ".options reltol=1e-5 abstol=1e-12 vntol=1e-8\n.control\nop\n"
            "wrdata %s v(P) v(G) v(K) v(B)\n" % op +
            "tran 5.208333333e-6 0.3 0.29 2e-6\nlinearize v(P)\nwrdata %s v(P)\n.endc\n.end\n" % tran)


def main():
    lines = ["# The 12AX7 stage of examples/triode-stage.xml from ngspice: make_reference.py; do not edit"]
    with tempfile.TemporaryDirectory() as work:
        cir, op, tran = (os.path.join(work, n) for n in ("tri.cir", "op.txt", "tran.txt"))
        for amplitude in AMPLITUDES:
            with open(cir, "w") as f:
                f.write(netlist(amplitude, op, tran))
            # Batch mode exits with 1 after a .control block: the data files are what counts.
            subprocess.run(["ngspice", "-b", cir], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if amplitude == AMPLITUDES[0]:
                with open(op) as f:
                    v = f.read().split()
                lines.append("op %s" % " ".join("%.9g" % float(v[i]) for i in (1, 3, 5, 7)))
            with open(tran) as f:
                plate = [float(line.split()[1]) for line in f if line.strip()]
            # From 0.29 s in steps of 1/192000: the last period before 0.3 s.
            first = int(0.3 * RATE + 0.5) - PERIOD - int(0.29 * RATE + 0.5)
            if len(plate) < first + PERIOD:
                raise SystemExit("ngspice gave %d points at %g V" % (len(plate), amplitude))
            lines.append("plate %g %d" % (amplitude, PERIOD))
            lines += ["%.9g" % v for v in plate[first:first + PERIOD]]
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "reference.txt"), "w") as f:
        f.write("\n".join(lines) + "\n")


main()
