// Per-sample costs of the circuits in examples/: the tone stack at 48 kHz and
// the 12AX7 stage at 192 kHz (with Newton iteration statistics).
#include <benchmark/benchmark.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "circuit/Circuit.h"
#include "engine/Driver.h"
#include "solvers/NewtonSolver.h"

using namespace kelm;

namespace {
std::string readExample(const char* name) {
    std::ifstream f(std::string(KELM_SOURCE_DIR) + "/examples/" + name);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

std::shared_ptr<Driver> driverFor(const char* example, float rate, int block) {
    auto d = std::make_shared<Driver>();
    d->init(readExample(example));
    d->setSampleRate(rate);
    d->setMaxBlockSize(block);
    return d;
}
} // namespace

static void BM_ToneStackPerSample(benchmark::State& state) {
    const int block = 512;
    auto d = driverFor("baxandall.xml", 48000, block);
    std::vector<float> in(block);
    for (int i = 0; i < block; ++i) in[i] = 0.5f * std::sin(0.05f * i);
    for (auto _ : state) {
        d->process({in.data()}, block);
        benchmark::DoNotOptimize(d->getResults()[0][0]);
    }
    state.SetItemsProcessed(state.iterations() * block);
    state.counters["ns_per_sample"] =
        benchmark::Counter(state.iterations() * block, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ToneStackPerSample)->Unit(benchmark::kMicrosecond);

static void BM_TriodeStage192k(benchmark::State& state) {
    const int block = 480;
    const double amplitude = state.range(0) / 10.0;
    auto d = driverFor("triode-stage.xml", 192000, block);
    auto* c = dynamic_cast<Circuit*>(&d->getGraph("V1MNA"));
    auto* newton = dynamic_cast<NewtonSolver*>(c->getAnalysis()->solver.get());
    std::vector<float> in(block);
    long n = 0, iterations = 0, capped = 0, samples = 0;
    for (auto _ : state) {
        for (int i = 0; i < block; ++i, ++n) in[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * 1000 * n / 192000.0));
        // One sample at a time to read the iteration count of each solve.
        for (int i = 0; i < block; ++i) {
            d->process({in.data() + i}, 1);
            iterations += newton->lastIterations();
            capped += newton->lastIterations() >= newton->maxIterations();
            ++samples;
        }
    }
    state.counters["ns_per_sample"] =
        benchmark::Counter(samples, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["mean_iterations"] = static_cast<double>(iterations) / samples;
    state.counters["share_at_max_iterations"] = static_cast<double>(capped) / samples;
}
BENCHMARK(BM_TriodeStage192k)->Arg(1)->Arg(10)->Arg(40)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
