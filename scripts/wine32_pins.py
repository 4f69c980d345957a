#!/usr/bin/env python3
"""Prints the version pins (one "pkg:arch=version" a line) that let apt install
wine32:i386 beside the amd64 system.

The i386 libraries that wine32 pulls in must carry the same version as their amd64
twins (Multi-Arch: same). When the amd64 twin is installed at, or would be moved to,
a version the i386 index does not offer (an i386 index that failed to update, or an
install older than the mirror), both are pinned to a version both architectures
offer: the installed one if i386 has it, else the newest they share. Everything is
read from apt's own answers, so the list follows the mirror."""
import re
import subprocess


def out(*args):
    return subprocess.run(args, capture_output=True, text=True).stdout


def versions(names):
    """Versions apt offers for each name (pkg:arch), newest first."""
    table = {}
    for line in out("apt-cache", "madison", *names).splitlines():
        parts = [p.strip() for p in line.split("|")]
        if len(parts) >= 3:
            table.setdefault(parts[0], []).append(parts[1])
    return table


closure = sorted({line.strip() for line in out(
    "apt-cache", "depends", "--recurse", "--no-recommends", "--no-suggests", "--no-conflicts",
    "--no-breaks", "--no-replaces", "--no-enhances", "wine32:i386").splitlines()
    if line and not line[0] in " <" and line.strip().endswith(":i386")})
bases = [name[:-len(":i386")] for name in closure]
installed = {}
for line in out("dpkg-query", "-W", "-f=${Package}|${Status}|${Version}\\n",
                *[b + ":amd64" for b in bases]).splitlines():
    name, status, version = line.split("|")
    if status == "install ok installed":
        installed[name] = version
bases = [b for b in bases if b in installed]
same = set()
for block in out("apt-cache", "show", "--no-all-versions", *[b + ":i386" for b in bases]).split("\n\n"):
    m = re.search(r"^Package: (\S+)", block, re.M)
    if m and re.search(r"^Multi-Arch: same", block, re.M):
        same.add(m.group(1))
candidates = {}
current = None
for line in out("apt-cache", "policy", *[b + ":amd64" for b in bases]).splitlines():
    if not line.startswith(" "):
        current = line.rstrip(":").split(":")[0]
    elif line.strip().startswith("Candidate:"):
        candidates[current] = line.split(":", 1)[1].strip()
i386 = versions([b + ":i386" for b in bases])
amd64 = versions([b + ":amd64" for b in bases])
pins = {}
for b in bases:
    if b not in same:
        continue
    offered = i386.get(b, []) + i386.get(b + ":i386", [])
    if not offered or (installed[b] in offered and candidates.get(b) in offered):
        continue
    if installed[b] in offered:
        target = installed[b]
    else:
        shared = [v for v in offered if v in amd64.get(b, [])]
        if not shared:
            continue
        target = shared[0]
    pins[b] = target

# Installed packages built from the same source as a pinned library (its -dev
# package, its tools) depend on its exact version: they move to the same version,
# where apt offers it, instead of being removed.
if pins:
    source_of = {}
    for line in out("dpkg-query", "-W", "-f=${Package}|${source:Package}|${Status}\n").splitlines():
        name, source, status = line.split("|")
        if status == "install ok installed":
            source_of.setdefault(source, []).append(name)
    pinned_sources = {}
    for line in out("dpkg-query", "-W", "-f=${Package}|${source:Package}\n",
                    *[b + ":amd64" for b in pins]).splitlines():
        name, source = line.split("|")
        pinned_sources[source] = pins[name]
    companions = [n for src in pinned_sources for n in source_of.get(src, []) if n not in pins]
    offered = versions([n + ":amd64" for n in companions]) if companions else {}
    for src, target in pinned_sources.items():
        for n in source_of.get(src, []):
            if n not in pins and target in offered.get(n, []) + offered.get(n + ":amd64", []):
                print(f"{n}:amd64={target}")
for b, target in pins.items():
    print(f"{b}:amd64={target}")
    print(f"{b}:i386={target}")
