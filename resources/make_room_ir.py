#!/usr/bin/env python3
"""Writes WAVE/room-44k1.wav: a synthetic room impulse response (a direct
sound and an exponentially decaying noise tail, 0.1 s at 44.1 kHz, 16-bit).
Made here from a fixed seed, so it is ours and reproducible."""
import numpy as np
from scipy.io import wavfile

rate = 44100
n = int(0.1 * rate)
rng = np.random.default_rng(2026)
t = np.arange(n) / rate
ir = rng.standard_normal(n) * np.exp(-t / 0.02) * 0.3
ir[0] = 1.0
ir[int(0.004 * rate)] += 0.5
ir /= np.max(np.abs(ir))
wavfile.write("WAVE/room-44k1.wav", rate, (ir * 32767 * 0.9).astype(np.int16))
