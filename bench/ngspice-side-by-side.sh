#!/bin/bash
# The 12AX7 stage of examples/triode-stage.xml, one second of a 1 kHz sine of
# 1 V at 192 kHz, simulated by ngspice (transient with a fixed step of one
# sample, reltol=1e-3, the same Koren plate-current and power-law grid-current
# equations as behavioural sources) and rendered by `kelm render`; prints the
# wall-clock time of each (best of three runs) and the ratio.
# Usage: bench/ngspice-side-by-side.sh [path/to/kelm]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
kelm=${1:-$here/build/kelm}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

python3 - "$work/in.wav" <<'PY'
import math, struct, sys
rate, n = 192000, 192000
data = struct.pack('<%df' % n, *[math.sin(2 * math.pi * 1000 * i / rate) for i in range(n)])
fmt = struct.pack('<HHIIHH', 3, 1, rate, rate * 4, 4, 32)
body = b'WAVE' + b'fmt ' + struct.pack('<I', len(fmt)) + fmt + b'data' + struct.pack('<I', len(data)) + data
open(sys.argv[1], 'wb').write(b'RIFF' + struct.pack('<I', len(body)) + body)
PY

cat > "$work/stage.cir" <<EOF2
triode stage
Vin in 0 DC 0 SIN(0 1 1k)
Rg in G 1
VB B 0 155
Rp B P 100k
Rk K 0 1200
Ck K 0 50u
Cpg P G 2.4p
Bp P K I = (V(P,K) > 0 && V(G,K) >= -8) ? 2/1060*pwr((min(V(P,K),400)/600)*ln(1+exp(600*(1/100 + min(V(G,K),4)/sqrt(pwr(min(V(P,K),400),2)+300)))),1.4) : 0
Bg G K I = (V(G,K)+0.53 > 0) ? 3.14e-4*pwr(min(V(G,K)+0.53,4),3) : 0
.options reltol=1e-3
.control
tran 5.208333333e-6 1 0 5.208333333e-6
wrdata $work/plate.txt v(P)
.endc
.end
EOF2

best() {  # best wall-clock seconds of three runs of "$@"
    local b=""
    for _ in 1 2 3; do
        local t0 t1
        t0=$(date +%s.%N)
        "$@" > "$work/log" 2>&1 || true
        t1=$(date +%s.%N)
        b=$(python3 -c "import sys; t=float(sys.argv[2])-float(sys.argv[1]); b=sys.argv[3]; print(t if not b or t<float(b) else b)" "$t0" "$t1" "$b")
    done
    echo "$b"
}

spice=$(best ngspice -b "$work/stage.cir")
points=$(wc -l < "$work/plate.txt" || echo 0)
ours=$(best "$kelm" render --system "$here/examples/triode-stage.xml" --in "$work/in.wav" --out "$work/out.wav")
[ -s "$work/out.wav" ] || { echo "kelm render failed" >&2; exit 1; }
[ "$points" -gt 1000 ] || { echo "ngspice wrote no transient" >&2; exit 1; }
python3 - "$spice" "$ours" "$points" <<'PY'
import sys
spice, ours, points = float(sys.argv[1]), float(sys.argv[2]), int(sys.argv[3])
print("ngspice (fixed step 1/192000 s, reltol=1e-3, %d time points): %.3f s" % (points, spice))
print("kelm render (192000 samples): %.3f s" % ours)
print("ratio: kelm is %.1f times faster" % (spice / ours))
PY
