#!/usr/bin/env python3
"""Exits 0 when this kernel runs 32-bit x86 Linux programs (wine32 needs that), else 1.
Writes a minimal static i386 program that only calls exit(0), and starts it."""
import os
import struct
import subprocess
import sys
import tempfile

base = 0x08048000
code = bytes([0xB8, 1, 0, 0, 0, 0x31, 0xDB, 0xCD, 0x80])  # mov eax, 1; xor ebx, ebx; int 0x80
size = 52 + 32 + len(code)
header = b"\x7fELF\x01\x01\x01" + bytes(9) + struct.pack("<HHIIIIIHHHHHH", 2, 3, 1, base + 84, 52, 0, 0, 52, 32, 1, 0, 0, 0)
program = struct.pack("<IIIIIIII", 1, 0, base, base, size, size, 5, 0x1000)
with tempfile.NamedTemporaryFile(delete=False, suffix=".i386") as f:
    f.write(header + program + code)
os.chmod(f.name, 0o755)
try:
    ok = subprocess.run([f.name]).returncode == 0
except OSError:
    ok = False
os.unlink(f.name)
sys.exit(0 if ok else 1)
