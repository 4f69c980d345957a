# Writes the host test's input: one second of silence, then two seconds of plucked notes,
# stereo 32-bit float at 48 kHz. Usage: make_input.py OUT.wav
import math, struct, sys
rate = 48000
data = [0.0] * rate
for i in range(2 * rate):
    t = i / rate
    env = math.exp(-3 * (t % 0.5))
    f = 110 if (t % 1) < 0.5 else 165
    data.append(0.5 * env * math.sin(2 * math.pi * f * t) + 0.15 * env * math.sin(2 * math.pi * 1320 * t))
body = b"".join(struct.pack("<ff", x, x) for x in data)
header = (b"RIFF" + struct.pack("<I", 36 + len(body)) + b"WAVE" + b"fmt " +
          struct.pack("<IHHIIHH", 16, 3, 2, rate, rate * 8, 8, 32) + b"data" + struct.pack("<I", len(body)))
open(sys.argv[1], "wb").write(header + body)
