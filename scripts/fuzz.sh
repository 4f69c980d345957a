#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (address and undefined-behaviour sanitizers)
# into build-fuzz and runs each for a while: scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
# The corpora grow in build-fuzz/corpus/, seeded from examples/, tests/data/ and resources/;
# fuzz/TARGET.dict, where there is one, gives the mutations the tokens of the format;
# an input that fails is left in build-fuzz/artifacts/ and the script fails. Keep such inputs
# under tests/fuzz/TARGET/, where ctest replays them in every build.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(system wave cli netlist circuit)
dir=build-fuzz
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined"
mkdir -p "$dir"
echo "building $dir ..."
if ! { cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
         "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
         -DKELM_FUZZ=ON -DKELM_BUILD_BENCH=OFF -DKELM_INSTALL_USER_VST=OFF -DKELM_INSTALL_USER_CLAP=OFF \
         "-DCMAKE_CXX_FLAGS=$flags" "-DCMAKE_C_FLAGS=$flags" "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=address,undefined" &&
       cmake --build "$dir" -j"$(nproc)" $(printf -- '--target kelm_fuzz_%s ' "${targets[@]}"); } > "$dir/build.log" 2>&1; then
  cat "$dir/build.log"
  echo "build of $dir failed" >&2
  exit 1
fi

seed() {
  local t="$1" corpus="$dir/corpus/$1"
  mkdir -p "$corpus"
  case "$t" in
    system) cp examples/*.xml tests/data/*.xml plugin/core/builtin.xml "$corpus"/ ;;
    wave) cp resources/WAVE/*.wav "$corpus"/
          for f in tests/data/*.wav; do [ -e "$f" ] && cp "$f" "$corpus"/; done ;;
    cli) printf 'render\0--in\0a.wav\0--out\0b.wav\0--set\0Gain=0.5\0--block\0256' > "$corpus/render"
         printf 'signal\0--out\0s.wav\0--seconds\0 2.5\0--rate\0 44100' > "$corpus/signal"
         printf 'info\0--system\0x.xml' > "$corpus/info"
         printf 'tables\0--out\0dir' > "$corpus/tables" ;;
    netlist) cp tests/data/netlist/*.cir "$corpus"/ ;;
    circuit) cp examples/*.xml examples/*.cir "$corpus"/
             for f in examples/baxandall.xml examples/bassman-tonestack.cir; do
               { printf 'KelmCircuit 1\nname: %s\npath: \nreload: 0\nparameters: 0.8 0.3 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0.5 0.5 0 1\ndocument: %s\n' \
                   "$(basename "$f")" "$(wc -c < "$f")"; cat "$f"; } > "$corpus/state-$(basename "$f")"
             done ;;
  esac
  [ -d "tests/fuzz/$t" ] && cp tests/fuzz/"$t"/* "$corpus"/ 2>/dev/null || true
}

# The targets run side by side, each for its time: a minute each takes a minute, not three.
run() {
  local t="$1"
  local dict=()
  [ -f "fuzz/$t.dict" ] && dict=(-dict="fuzz/$t.dict")
  if ! "$dir/kelm_fuzz_$t" "$dir/corpus/$t" "${dict[@]}" -max_total_time="$seconds" -timeout=120 -rss_limit_mb=2048 \
        -max_len=65536 -print_final_stats=1 -artifact_prefix="$dir/artifacts/$t/" > "$dir/fuzz-$t.log" 2>&1; then
    return 1
  fi
}
pids=()
for t in "${targets[@]}"; do
  seed "$t"
  mkdir -p "$dir/artifacts/$t"
  echo "fuzzing $t for ${seconds} s ..."
  run "$t" &
  pids+=($!)
done
status=0
for i in "${!targets[@]}"; do
  t="${targets[$i]}"
  if ! wait "${pids[$i]}"; then
    tail -n 60 "$dir/fuzz-$t.log"
    echo "fuzz target $t failed; the input is in $dir/artifacts/$t/" >&2
    status=1
  fi
  echo "$t:"
  grep -E "^stat::number_of_executed_units|^#[0-9]+.*DONE" "$dir/fuzz-$t.log" || true
done
exit $status
