// The convolver with a long response, and the memory one instance of the
// preamp holds once it is ready to play.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cmath>
#include <random>

#include "dsp/WaveConvolver.h"
#include "dsp/DSPContext.h"
#include "plugin/core/KelmEffect.h"

using namespace kelm;

// WaveConvolver with a 2 s response at 48 kHz (decaying noise, as a room's),
// one per channel, blocks of 256. Real-time factor of the stereo pair.
static void BM_WaveConvolver2sStereo(benchmark::State& state) {
    const int block = 256;
    const float rate = 48000;
    auto response = std::make_shared<ScalarVector>(2 * 48000);
    std::mt19937 rng(2);
    std::normal_distribution<float> noise(0, 1);
    for (size_t i = 0; i < response->size(); ++i)
        (*response)[i] = 0.05f * noise(rng) * std::exp(-3.0f * static_cast<float>(i) / response->size());
    auto ctx = std::make_shared<DSPContext>();
    WaveConvolver channels[2];
    for (auto& w : channels) {
        w.init("room", std::make_shared<PropertyMap>(PropertyMap{
                           {"ImpulseResponses", "room"}, {"Location", "Memory"}, {"MaxIRSize", "96000"}}),
               ctx);
        w.setMemoryResponse("room", 48000, response);
        w.setMaxBlockSize(block);
        w.sampleRateChanged(rate);
    }
    // A second of input, made before timing and played round.
    std::vector<float> in(48000 / block * block);
    for (size_t i = 0; i < in.size(); ++i) in[i] = 0.3f * std::sin(0.031f * i) + 0.01f * noise(rng);
    size_t at = 0;
    for (auto _ : state) {
        at = at + block < in.size() ? at + block : 0;
        for (auto& w : channels) {
            BufferList inputs = {in.data() + at};
            w.process(inputs, block);
            benchmark::DoNotOptimize(w.getOutput(0)[0]);
        }
    }
    state.counters["x_real_time"] =
        benchmark::Counter(state.iterations() * block / 48000.0, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_WaveConvolver2sStereo)->Unit(benchmark::kMicrosecond)->MinTime(1.0);

namespace {
size_t heapInUse() {
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}
} // namespace

// Heap held by one effect from construction to the first block, at 4x
// oversampling (the largest buffers), 48 kHz, blocks of 512: everything that
// went through malloc, operator new included, and was not released.
static void BM_PreampMemoryPerInstance(benchmark::State& state) {
    double bytes = 0;
    for (auto _ : state) {
        const size_t before = heapInUse();
        auto* effect = new KelmEffect();
        effect->setParameter(effect->parameterIndex("Oversampling"), 1.0f);
        effect->setSampleRate(48000);
        effect->setBlockSize(512);
        effect->resume();
        std::vector<float> l(512), r(512);
        float* in[2] = {l.data(), r.data()};
        effect->process(in, in, 512);
        bytes = static_cast<double>(heapInUse() - before);
        delete effect;
    }
    state.counters["MB"] = bytes / (1024.0 * 1024.0);
}
BENCHMARK(BM_PreampMemoryPerInstance)->Unit(benchmark::kMillisecond)->Iterations(3);
