# Compares Ardour's export with kelm's render of the same input after the silent lead-in.
# Ardour runs the plug-in for a while before its export starts; the silence leaves every state
# at rest, so the two agree to the bit. The bound leaves room for the circuit path's Newton
# iteration, whose result depends on where it starts: the difference must stay 100 dB under
# the signal and its peak under -100 dBFS.
# Usage: compare.py EXPORT.wav RENDER.wav LEAD_IN_FRAMES FRAMES, or compare.py --frames EXPORT.wav
# A render of one channel stands for both channels of the export.
import math, struct, sys
from array import array


def read(path):
    b = open(path, "rb").read()
    pos, channels = 12, None
    while pos + 8 <= len(b):
        cid, size = b[pos:pos + 4], struct.unpack("<I", b[pos + 4:pos + 8])[0]
        if cid == b"fmt ":
            tag, channels, rate, _, _, bits = struct.unpack("<HHIIHH", b[pos + 8:pos + 24])
            if tag not in (3, 0xFFFE) or bits != 32:
                sys.exit(f"{path}: not 32-bit float (format {tag}, {bits} bits)")
        if cid == b"data":
            d = array("f")
            d.frombytes(b[pos + 8:pos + 8 + size - size % 4])
            return [d[c::channels] for c in range(channels)]
        pos += 8 + size + (size & 1)
    sys.exit(f"{path}: no data chunk")


def db(v):
    return 20 * math.log10(v + 1e-30)


if sys.argv[1] == "--frames":  # compare.py --frames FILE: how many frames a perhaps truncated export holds
    try:
        print(min(len(channel) for channel in read(sys.argv[2])))
    except (Exception, SystemExit):
        print(0)
    sys.exit()

exported, rendered = read(sys.argv[1]), read(sys.argv[2])
if len(rendered) == 1:  # a document of one output: both sides of the plug-in play it
    rendered = rendered * 2
lead, frames = int(sys.argv[3]), int(sys.argv[4])
ok = len(exported) == 2 and len(rendered) == 2
print(f"channels: export {len(exported)}, render {len(rendered)}")
for c in range(min(len(exported), len(rendered))):
    a, r = exported[c], rendered[c]
    if len(a) < frames or len(r) < frames:
        print(f"channel {c}: {len(a)} frames exported, {len(r)} rendered, {frames} expected")
        ok = False
        continue
    n = frames - lead
    signal = math.sqrt(sum(x * x for x in r[lead:frames]) / n)
    diff = [a[i] - r[i] for i in range(lead, frames)]
    rms = math.sqrt(sum(d * d for d in diff) / n)
    peak = max(abs(d) for d in diff)
    finite = all(math.isfinite(x) for x in a[:frames])
    print(f"channel {c}: signal {db(signal):.1f} dBFS rms, difference {db(rms):.1f} dBFS rms, "
          f"{db(peak):.1f} dBFS peak; lead-in peak of the export {db(max(abs(x) for x in a[:lead])):.1f} dBFS")
    ok = ok and finite and signal > 0.01 and db(rms) < db(signal) - 100 and db(peak) < -100
sys.exit(0 if ok else 1)
