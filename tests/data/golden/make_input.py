"""Writes the stereo input of the golden renders: 3000 frames at 48 kHz, 32-bit float.
Left: decaying partials of a plucked A2 and E3; right: a rising sine with a little noise,
so that the two channels differ. Standard library only."""
import math, random, struct, sys

rate, frames = 48000, 3000
random.seed(15)
left, right = [], []
for n in range(frames):
    t = n / rate
    l = sum(0.5 / k * math.exp(-t * 6 * k) * math.sin(2 * math.pi * 110 * k * t) for k in range(1, 6))
    l += 0.3 * math.exp(-t * 4) * math.sin(2 * math.pi * 164.8 * t) if n > 1200 else 0
    r = 0.6 * math.sin(2 * math.pi * (200 + 2000 * t) * t) + 0.01 * (random.random() - 0.5)
    left.append(l)
    right.append(r)
data = b"".join(struct.pack("<ff", a, b) for a, b in zip(left, right))
fmt = struct.pack("<HHIIHH", 3, 2, rate, rate * 8, 8, 32)
with open(sys.argv[1], "wb") as f:
    f.write(b"RIFF" + struct.pack("<I", 4 + 8 + len(fmt) + 8 + len(data)) + b"WAVE")
    f.write(b"fmt " + struct.pack("<I", len(fmt)) + fmt)
    f.write(b"data" + struct.pack("<I", len(data)) + data)
