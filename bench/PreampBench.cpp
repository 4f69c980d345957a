// Real-time factor of the built-in preamp: 48 kHz stereo in blocks of 512, for
// each Oversampling position with CPU at 0 (circuit) and 1 (table).
#include <benchmark/benchmark.h>

#include <cmath>

#include "plugin/core/KelmEffect.h"

using namespace kelm;

static void BM_Preamp(benchmark::State& state) {
    const float oversampling = state.range(0) / 2.0f;  // 0, 0.5, 1 -> 1x, 2x, 4x
    const float cpu = static_cast<float>(state.range(1));
    // With a third argument of 1, Bass, Treble and Vol turn on every block (automation, a
    // drag in the window): each turn makes the circuits eliminate their linear parts again.
    const bool turning = state.range(2) != 0;
    const int block = 512;
    KelmEffect effect;
    effect.setParameter(effect.parameterIndex("Oversampling"), oversampling);
    effect.setParameter(effect.parameterIndex("CPU"), cpu);
    effect.setSampleRate(48000);
    effect.setBlockSize(block);
    effect.resume();
    std::vector<float> l(block), r(block), outL(block), outR(block);
    long n = 0;
    long blocks = 0;
    const int knobs[3] = {effect.parameterIndex("Bass"), effect.parameterIndex("Treble"), effect.parameterIndex("Vol")};
    for (auto _ : state) {
        if (turning) {
            const float position = 0.25f + 0.5f * static_cast<float>((blocks % 64) / 63.0);
            for (int k : knobs) effect.setParameter(k, position);
        }
        ++blocks;
        state.PauseTiming();
        for (int i = 0; i < block; ++i, ++n) {
            l[i] = 0.2f * std::sin(2 * M_PI * 220 * n / 48000.0);
            r[i] = 0.2f * std::sin(2 * M_PI * 330 * n / 48000.0);
        }
        state.ResumeTiming();
        float* in[2] = {l.data(), r.data()};
        float* out[2] = {outL.data(), outR.data()};
        effect.process(in, out, block);
        benchmark::DoNotOptimize(outL[0]);
    }
    // Seconds of audio per second of processing.
    state.counters["x_real_time"] =
        benchmark::Counter(state.iterations() * block / 48000.0, benchmark::Counter::kIsRate);
    state.SetLabel(std::string(cpu > 0.5f ? "table" : "circuit") + " path, " +
                   std::to_string(1 << static_cast<int>(state.range(0))) + "x oversampling" +
                   (turning ? ", knobs turning" : ""));
}
BENCHMARK(BM_Preamp)
    ->ArgsProduct({{0, 1, 2}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);
