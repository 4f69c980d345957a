// Every circuit of examples/ at 192 kHz, one core, blocks of 512: real-time factor (from
// CPU time), the port form's iterations per sample, and the cost of a knob that turns
// on every block against one that rests.
#include <benchmark/benchmark.h>

#include <dirent.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "circuit/Circuit.h"
#include "engine/Control.h"
#include "engine/Element.h"
#include "engine/Driver.h"
#include "solvers/EngineTypes.h"
#include "solvers/NodalKernel.h"

using namespace kelm;

namespace {

const double kRate = 192000;
const int kBlock = 512;

std::string readFile(const std::string& path) {
    std::ifstream f(path);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

// Sines of 110 and 165 Hz under a plucked envelope that restarts every quarter second:
// the attacks of a guitar at `level` volts peak. With KELM_BENCH_SINE set in the
// environment, a steady 1 kHz sine of that peak instead (the input of the comparison with
// ngspice, which keeps clipping circuits in their hardest state).
const bool steadySine = std::getenv("KELM_BENCH_SINE") != nullptr;
float plucked(long n, double level) {
    const double t = n / kRate, phase = std::fmod(t, 0.25);
    if (steadySine) return static_cast<float>(level * std::sin(2 * M_PI * 1000 * t));
    const double envelope = std::exp(-phase * 12.0) * std::min(1.0, phase * 2000.0);
    return static_cast<float>(level * envelope * (0.6 * std::sin(2 * M_PI * 110 * t) + 0.4 * std::sin(2 * M_PI * 165 * t)));
}

void runExample(benchmark::State& state, const std::string& file, double level, bool turning) {
    registerEngineTypes();
    auto d = std::make_shared<Driver>();
    d->init(readFile(file));
    d->setSampleRate(static_cast<float>(kRate));
    d->setMaxBlockSize(kBlock);
    std::vector<float> in(kBlock);
    long n = 0;
    auto fill = [&] {
        for (int i = 0; i < kBlock; ++i, ++n) in[i] = plucked(n, level);
    };
    // A second first, so that the start has settled.
    for (int b = 0; b < static_cast<int>(kRate / kBlock); ++b) {
        fill();
        d->process({in.data()}, kBlock);
    }
    std::vector<const NodalKernel*> kernels;
    for (const GraphPtr& g : d->getGraphs())
        if (auto* c = dynamic_cast<Circuit*>(g.get()))
            if (auto* k = dynamic_cast<const NodalKernel*>(&c->kernel())) kernels.push_back(k);
    long solves0 = 0, iterations0 = 0, factored0 = 0;
    for (const NodalKernel* k : kernels) {
        solves0 += k->solveCount();
        iterations0 += k->iterationCount();
        factored0 += k->factorCount();
    }
    // The first knob: a control that moves no switch or rate (those are changes of structure,
    // carried out with spare graphs, not turned on every block).
    ControlPtr knob;
    for (const ControlPtr& c : turning ? d->getControls() : std::vector<ControlPtr>()) {
        bool continuous = true;
        if (!c->getProperties()) continue;
        for (const PropertyPtr& p : *c->getProperties())
            continuous = continuous && !(p->element && p->element->changesStructure(p->name)) && p->element;
        if (continuous) {
            knob = c;
            break;
        }
    }
    long blocks = 0;
    for (auto _ : state) {
        state.PauseTiming();
        fill();
        state.ResumeTiming();
        // A knob turned on every block, as automation or a drag in the window turns it.
        if (knob) knob->setValue(0.25f + 0.5f * static_cast<float>((blocks % 64) / 63.0));
        ++blocks;
        d->process({in.data()}, kBlock);
        benchmark::DoNotOptimize(d->getResults()[0][0]);
    }
    long solves = -solves0, iterations = -iterations0, factored = -factored0;
    for (const NodalKernel* k : kernels) {
        solves += k->solveCount();
        iterations += k->iterationCount();
        factored += k->factorCount();
    }
    state.counters["x_real_time"] = benchmark::Counter(state.iterations() * kBlock / kRate, benchmark::Counter::kIsRate);
    if (solves > 0) state.counters["iterations_per_sample"] = static_cast<double>(iterations) / solves;
    // The share of the port iteration's steps that factored J.
    if (iterations > 0) state.counters["factored"] = static_cast<double>(factored) / iterations;
    state.SetLabel(turning ? (knob ? "knob turning" : "no knob") : "");
}

// One benchmark per example and level (0.1 and 0.5 V peak), and one with its first knob
// turning at 0.5 V.
const bool registered = [] {
    const std::string dir = std::string(KELM_SOURCE_DIR) + "/examples";
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string name = e->d_name;
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".xml") == 0) names.push_back(name);
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string file = dir + "/" + name, stem = name.substr(0, name.size() - 4);
        for (int millivolts : {100, 500})
            benchmark::RegisterBenchmark(("BM_Example192k/" + stem + "/" + std::to_string(millivolts) + "mV").c_str(),
                                         [file, millivolts](benchmark::State& s) { runExample(s, file, millivolts / 1000.0, false); })
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BM_Example192k/" + stem + "/500mV/knob").c_str(),
                                     [file](benchmark::State& s) { runExample(s, file, 0.5, true); })
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

} // namespace
