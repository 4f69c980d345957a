#pragma once
// Helpers of the Kelm Circuit tests: a test signal, the engine's own render of a document
// (what `kelm render --system` does) and the tool's own, the effect's render, and how far two renders differ.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "netlist/SystemDescription.h"
#include "plugin/core/CircuitEffect.h"
#include "solvers/EngineTypes.h"
#include "tests/TestUtil.h"

namespace kelm {
namespace test {
namespace circuit {

// Two channels of plucked-like tones: a decaying mix of a few partials, different per side.
inline std::vector<std::vector<float>> testSignal(int frames, double rate, float amplitude = 0.5f) {
    std::vector<std::vector<float>> s(2, std::vector<float>(frames));
    for (int i = 0; i < frames; ++i) {
        const double t = i / rate;
        const double env = std::exp(-3.0 * std::fmod(t, 0.25));
        s[0][i] = static_cast<float>(amplitude * env * (0.7 * std::sin(2 * M_PI * 220 * t) + 0.3 * std::sin(2 * M_PI * 1330 * t)));
        s[1][i] = static_cast<float>(amplitude * env * (0.6 * std::sin(2 * M_PI * 330 * t) + 0.4 * std::sin(2 * M_PI * 2010 * t)));
    }
    return s;
}

// What `kelm render --system` gives: the document (a netlist imported for the rate) on a
// Driver, system input k reading channel min(k, 1), in blocks of `block`.
inline std::vector<std::vector<float>> engineRender(const std::string& text, const std::string& name,
                                                    const std::vector<std::vector<float>>& in, double rate,
                                                    int block) {
    registerEngineTypes();
    Driver d;
    d.init(systemDescription(text, name, rate));
    d.setSampleRate(static_cast<float>(rate));
    d.setMaxBlockSize(block);
    const int frames = static_cast<int>(in[0].size());
    std::vector<std::vector<float>> out(d.getNumberOfOutputs(), std::vector<float>(frames));
    std::vector<float*> ins(d.getNumberOfInputs());
    for (int offset = 0; offset < frames; offset += block) {
        const int n = std::min(block, frames - offset);
        for (size_t k = 0; k < ins.size(); ++k) ins[k] = const_cast<float*>(in[std::min<size_t>(k, 1)].data()) + offset;
        d.process(ins, n);
        for (size_t c = 0; c < out.size(); ++c) std::copy(d.getResults()[c], d.getResults()[c] + n, out[c].begin() + offset);
    }
    return out;
}

// `kelm render --system FILE` of one channel, as a file on disk.
inline std::vector<float> kelmRenderSystem(const std::string& file, const std::vector<float>& channel, int block) {
    const std::string in = tempPath("circuit-in.wav"), out = tempPath("circuit-out.wav");
    writeWav(in, channel, 1, 48000);
    const CommandResult r = run(std::string(KELM_CLI_PATH) + " render --system " + file + " --in " + in + " --out " + out +
                                " --block " + std::to_string(block));
    EXPECT_EQ(0, r.status) << r.output;
    int channels = 0;
    std::vector<float> data = readWav(out, &channels);
    EXPECT_EQ(1, channels);
    std::remove(in.c_str());
    std::remove(out.c_str());
    return data;
}

// The effect over the signal in blocks of `block` (it must be set up and resumed).
inline std::vector<std::vector<float>> effectRender(CircuitEffect& e, const std::vector<std::vector<float>>& in,
                                                    int block, bool stereoInput = true) {
    const int frames = static_cast<int>(in[0].size());
    std::vector<std::vector<float>> out(2, std::vector<float>(frames));
    for (int offset = 0; offset < frames; offset += block) {
        const int n = std::min(block, frames - offset);
        float* i[2] = {const_cast<float*>(in[0].data()) + offset,
                       stereoInput ? const_cast<float*>(in[1].data()) + offset : nullptr};
        float* o[2] = {out[0].data() + offset, out[1].data() + offset};
        e.process(i, o, n, stereoInput);
    }
    return out;
}

inline float peak(const std::vector<float>& x, size_t from = 0, size_t to = ~size_t(0)) {
    float p = 0;
    for (size_t i = from; i < std::min(to, x.size()); ++i) p = std::max(p, std::fabs(x[i]));
    return p;
}

// The largest difference relative to b's peak; infinite when the lengths differ.
inline double relativeDifference(const std::vector<float>& a, const std::vector<float>& b) {
    if (a.size() != b.size()) return HUGE_VAL;
    double d = 0;
    for (size_t i = 0; i < a.size(); ++i) d = std::max(d, std::fabs(static_cast<double>(a[i]) - b[i]));
    const double p = peak(b);
    return p > 0 ? d / p : d;
}

// A set-up effect at 48 kHz, with the document (its text) in place.
inline void startWith(CircuitEffect& e, const std::string& text, double rate = 48000, int block = 512) {
    e.setSampleRate(static_cast<float>(rate));
    e.setBlockSize(block);
    ASSERT_TRUE(e.setState(text.data(), text.size())) << e.status().error;
    e.resume();
}

} // namespace circuit
} // namespace test
} // namespace kelm
