"""The side-by-side table of docs/performance.md from the files of scripts/bench-side-by-side.sh:
the better of the rounds for each row (highest real-time factor, lowest time per sample).
Usage: bench-table.py bench-out"""
import re, sys, glob, os
d = sys.argv[1]
def load(prefix):
    rows = {}
    for f in sorted(glob.glob(os.path.join(d, prefix + '.*.txt'))):
        for line in open(f):
            if not line.startswith('BM_'): continue
            name = line.split()[0].split('/min_time')[0].split('/iterations')[0]
            m = re.search(r'x_real_time=([\d.]+)', line); n = re.search(r'ns_per_sample=([\d.]+)(n|u)?s', line)
            mb = re.search(r'MB=([\d.]+)', line)
            if m: v, better = float(m.group(1)), max
            elif n: v, better = float(n.group(1)) * (1000 if n.group(2) == 'u' else 1), min
            elif mb: v, better = float(mb.group(1)), min
            else: continue
            rows[name] = better(rows[name], v) if name in rows else v
    return rows
b, a = load('before'), load('after')
rows = [
 ('Built-in preamp, `CPU`=0, 4x', 'BM_Preamp/2/0', 'x', 'at least 25x'),
 ('Built-in preamp, `CPU`=0, 2x', 'BM_Preamp/1/0', 'x', ''),
 ('Built-in preamp, `CPU`=0, 1x', 'BM_Preamp/0/0', 'x', 'at least 80x'),
 ('Built-in preamp, `CPU`=1, 4x', 'BM_Preamp/2/1', 'x', 'at least 120x'),
 ('Built-in preamp, `CPU`=1, 2x', 'BM_Preamp/1/1', 'x', ''),
 ('Built-in preamp, `CPU`=1, 1x', 'BM_Preamp/0/1', 'x', 'at least 300x'),
 ('12AX7 stage, 192 kHz, 0.1 V', 'BM_TriodeStage192k/1', 'ns', 'at most 120 ns per sample'),
 ('12AX7 stage, 192 kHz, 1 V', 'BM_TriodeStage192k/10', 'ns', 'at most 120 ns per sample'),
 ('12AX7 stage, 192 kHz, 4 V', 'BM_TriodeStage192k/40', 'ns', 'at most 120 ns per sample'),
 ('Tone stack, 48 kHz', 'BM_ToneStackPerSample', 'ns', 'at most 25 ns per sample'),
 ('Convolver (`WaveConvolver`), 2 s stereo response, blocks of 256', 'BM_WaveConvolver2sStereo', 'x', 'at least 150x'),
 ('Memory per plug-in instance (4x, heap in use)', 'BM_PreampMemoryPerInstance', 'MB', 'under 2 MB'),
]
print('| What (benchmark row) | Target | Before | After | Ratio |')
print('|---|---|---|---|---|')
for label, key, unit, target in rows:
    if key not in b and key not in a: continue
    fmt = {'x': lambda v: '%.1fx' % v if v < 100 else '%.0fx' % v, 'ns': lambda v: '%.0f ns per sample' % v, 'MB': lambda v: '%.2f MB' % v}[unit]
    bv, av = b.get(key), a.get(key)
    ratio = ''
    if bv and av: ratio = '%.2f' % ((av / bv) if unit == 'x' else (bv / av))
    print('| %s (`%s`) | %s | %s | %s | %s |' % (label, key, target, fmt(bv) if bv else '', fmt(av) if av else '', ratio))
