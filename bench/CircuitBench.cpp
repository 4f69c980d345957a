// Per-sample costs of the circuits in examples/: the tone stack at 48 kHz and
// the 12AX7 stage at 192 kHz (with Newton iteration statistics).
#include <benchmark/benchmark.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "circuit/Circuit.h"
#include "engine/Driver.h"
#include "solvers/EngineTypes.h"
#include "solvers/NodalKernel.h"

using namespace kelm;

namespace {
std::string readExample(const char* name) {
    std::ifstream f(std::string(KELM_SOURCE_DIR) + "/examples/" + name);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

std::shared_ptr<Driver> driverFor(const char* example, float rate, int block) {
    registerEngineTypes();
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
    auto* newton = dynamic_cast<const NodalKernel*>(&c->kernel());
    std::vector<float> in(block);
    long n = 0;
    // A second of signal first, so that the operating point has settled.
    for (int b = 0; b < 400; ++b) {
        for (int i = 0; i < block; ++i, ++n) in[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * 1000 * n / 192000.0));
        d->process({in.data()}, block);
    }
    const long solves0 = newton->solveCount(), iterations0 = newton->iterationCount(), capped0 = newton->cappedCount();
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < block; ++i, ++n) in[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * 1000 * n / 192000.0));
        state.ResumeTiming();
        d->process({in.data()}, block);
        benchmark::DoNotOptimize(d->getResults()[0][0]);
    }
    const double solves = static_cast<double>(newton->solveCount() - solves0);
    state.counters["ns_per_sample"] =
        benchmark::Counter(state.iterations() * block, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["mean_iterations"] = (newton->iterationCount() - iterations0) / solves;
    state.counters["share_at_max_iterations"] = (newton->cappedCount() - capped0) / solves;
}
BENCHMARK(BM_TriodeStage192k)->Arg(1)->Arg(10)->Arg(40)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
