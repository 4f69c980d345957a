#!/bin/sh
# Benchmarks of an earlier checkout and of this one, alternately, in one run.
# Usage: scripts/bench-side-by-side.sh BEFORE_DIR [ROUNDS]
#   BEFORE_DIR: a checkout of the earlier commit with its Release build in BEFORE_DIR/build.
# Today's bench/DspBench.cpp is built against the earlier libraries too, for the rows the
# earlier benchmarks lack. Writes before.N.txt and after.N.txt to bench-out/ and prints them.
set -e
BEFORE=$(cd "$1" && pwd)
ROUNDS=${2:-2}
HERE=$(cd "$(dirname "$0")/.." && pwd)
OUT="$HERE/bench-out"
mkdir -p "$OUT"
g++ -O2 -DNDEBUG -std=c++17 -DKELM_SOURCE_DIR=\"$BEFORE\" -I"$BEFORE" -I"$BEFORE/build/generated" \
    -I/usr/include/eigen3 "$HERE/bench/DspBench.cpp" "$BEFORE"/bench/*.cpp \
    -Wl,--start-group "$BEFORE/build/libkelm_builtin.a" "$BEFORE/build/libkelm_engine.a" -Wl,--end-group \
    -lpugixml -lbenchmark -lbenchmark_main -lpthread -o "$OUT/before_bench"
r=1
while [ "$r" -le "$ROUNDS" ]; do
    nice -n 5 "$OUT/before_bench" --benchmark_min_time=0.5 > "$OUT/before.$r.txt" 2>/dev/null
    nice -n 5 "$HERE/build/kelm_bench" --benchmark_min_time=0.5 > "$OUT/after.$r.txt" 2>/dev/null
    r=$((r + 1))
done
for f in "$OUT"/before.*.txt "$OUT"/after.*.txt; do
    echo "== $(basename "$f")"
    grep BM_ "$f" | sed 's/  */ /g'
done
echo
python3 "$HERE/scripts/bench-table.py" "$OUT"
