// What switching the preamp on costs: resume's warm-up (at least 0.2 s of silence, longer while
// the bias still drains) at 48 kHz in blocks of 480, per path and oversampling factor. Each
// iteration is a suspend and a resume of one instance.
#include <benchmark/benchmark.h>

#include "plugin/core/KelmEffect.h"

using namespace kelm;

static void BM_Resume(benchmark::State& state) {
    KelmEffect effect;
    effect.setParameter(effect.parameterIndex("CPU"), static_cast<float>(state.range(0)));
    effect.setParameter(effect.parameterIndex("Oversampling"), state.range(1) * 0.5f);
    effect.setSampleRate(48000);
    effect.setBlockSize(480);
    effect.resume();
    for (auto _ : state) {
        effect.suspend();
        effect.resume();
    }
}
// Arguments: CPU (0 circuit, 1 table), Oversampling position (0 1x, 1 2x, 2 4x).
BENCHMARK(BM_Resume)->ArgNames({"CPU", "OS"})->Args({0, 2})->Args({0, 0})->Args({1, 2})->Args({1, 0})
    ->Unit(benchmark::kMillisecond);
