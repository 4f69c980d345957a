// Switches and knobs moved while a signal plays, through the plug-in as a host loads it: a
// switch flipped every 100 ms under a 220 Hz sine neither overshoots what its two settings
// give in the steady state nor makes a sound of its own in silence, and a knob swept from 0
// to 1 in 50 ms makes no step larger than the signal's own.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tests/plugin/Vst2Plugin.h"

using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

enum { kInput, kGain, kVol, kOversampling, kBass, kTreble, kEqPosition, kStereo, kCpu };

struct Stereo {
    std::vector<float> l, r;
};

// An instance at a rate, switched on with one setting, fed in blocks of `block` frames.
struct Player : Plugin {
    int block;
    Player(float rate, int blockSize, std::initializer_list<std::pair<int, float>> settings) : block(blockSize) {
        for (auto& s : settings) e->setParameter(e, s.first, s.second);
        start(rate, blockSize);
    }
    // Runs x through; before each block, change(frame) may move a parameter.
    template <typename Change>
    Stereo run(const std::vector<float>& x, Change change) {
        const std::vector<float> y = play(x, [this] { return block; }, change);
        Stereo s;
        for (size_t i = 0; i + 1 < y.size(); i += 2) {
            s.l.push_back(y[i]);
            s.r.push_back(y[i + 1]);
        }
        return s;
    }
    Stereo run(const std::vector<float>& x) {
        return run(x, [](size_t) {});
    }
};

std::vector<float> sine(double seconds, double rate) {
    std::vector<float> x(static_cast<size_t>(seconds * rate));
    for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 220 * i / rate));
    return x;
}

double peak(const std::vector<float>& y, size_t from = 0) {
    double p = 0;
    for (size_t i = from; i < y.size(); ++i) p = std::max(p, static_cast<double>(std::fabs(y[i])));
    return p;
}

double largestStep(const std::vector<float>& y, size_t from = 0) {
    double s = 0;
    for (size_t i = std::max<size_t>(from, 1); i < y.size(); ++i)
        s = std::max(s, std::fabs(static_cast<double>(y[i]) - y[i - 1]));
    return s;
}

double dB(double x) { return 20 * std::log10(x + 1e-30); }

struct Flip {
    const char* name;
    int parameter;
    float a, b;
    float bass = 0.5f, treble = 0.5f;  // the tone stack, flat unless said
};

const Flip kFlips[] = {{"CPU", kCpu, 1.0f, 0.0f},
                       {"EQ_Position", kEqPosition, 0.0f, 1.0f},
                       {"EQ_Position", kEqPosition, 0.0f, 1.0f, 0.8f, 0.3f},
                       {"Oversampling", kOversampling, 0.0f, 1.0f},
                       {"Oversampling", kOversampling, 0.5f, 1.0f},
                       {"Stereo", kStereo, 0.0f, 1.0f}};

} // namespace

TEST(PluginWhilePlaying, SwitchesFlippedUnderASineStayWithinTheirSteadyPeaks) {
    // The sine plays for half a second before the first flip; then the switch changes every
    // 100 ms for 2 s. The steady peaks and steps are those of an instance that keeps each
    // setting. A switch that took effect at once would make a step ten times as large as the
    // sine's own where it changes the level or the delay (EQ_Position with the tone stack
    // tilted, Oversampling), without always going beyond the peaks.
    for (float rate : {44100.0f, 96000.0f}) {
        const int block = static_cast<int>(rate / 100);
        const size_t lead = static_cast<size_t>(rate / 2), tenth = static_cast<size_t>(rate / 10);
        const auto x = sine(2.5, rate);
        for (const Flip& f : kFlips) {
            double steady = 0, steadyStep = 0;
            for (float v : {f.a, f.b}) {
                const Stereo y = Player(rate, block, {{f.parameter, v}, {kBass, f.bass}, {kTreble, f.treble}}).run(x);
                steady = std::max({steady, peak(y.l, lead), peak(y.r, lead)});
                steadyStep = std::max({steadyStep, largestStep(y.l, lead), largestStep(y.r, lead)});
            }
            Player p(rate, block, {{f.parameter, f.a}, {kBass, f.bass}, {kTreble, f.treble}});
            int flips = 0;
            const Stereo y = p.run(x, [&](size_t at) {
                if (at >= lead && (at - lead) % tenth < static_cast<size_t>(block)) {
                    p.e->setParameter(p.e, f.parameter, flips % 2 ? f.a : f.b);
                    ++flips;
                }
            });
            const double worst = std::max(peak(y.l, lead), peak(y.r, lead));
            const double step = std::max(largestStep(y.l, lead), largestStep(y.r, lead));
            std::printf("%-12s %g-%g%s at %5.0f Hz: steady peak %.4f, flipping %.4f (%+.2f dB); largest step %.4f, "
                        "flipping %.4f\n",
                        f.name, f.a, f.b, f.bass != 0.5f ? " tilted" : "", rate, steady, worst, dB(worst) - dB(steady),
                        steadyStep, step);
            EXPECT_EQ(20, flips);
            const std::string what = std::string(f.name) + " " + std::to_string(f.a) + "-" + std::to_string(f.b) +
                                     " at " + std::to_string(rate) + " Hz";
            EXPECT_LT(dB(worst), dB(steady) + 1.0) << what;
            EXPECT_LT(step, 1.25 * steadyStep) << what;
        }
    }
}

TEST(PluginWhilePlaying, SwitchesFlippedInSilenceStaySilent) {
    // Silence in, the switch flipped every 100 ms, and after a sine that stopped: nothing
    // above -60 dBFS.
    for (float rate : {44100.0f, 96000.0f}) {
        const int block = static_cast<int>(rate / 100);
        const size_t tenth = static_cast<size_t>(rate / 10);
        auto x = sine(0.5, rate);
        const size_t quiet = x.size() + static_cast<size_t>(rate * 0.3);  // the sine's tail has died away
        x.resize(x.size() + static_cast<size_t>(2.3 * rate), 0.0f);
        for (const Flip& f : kFlips) {
            for (bool afterSine : {false, true}) {
                std::vector<float> in = x;
                if (!afterSine) std::fill(in.begin(), in.end(), 0.0f);
                Player p(rate, block, {{f.parameter, f.a}, {kBass, f.bass}, {kTreble, f.treble}});
                int flips = 0;
                const Stereo y = p.run(in, [&](size_t at) {
                    if (at >= quiet && (at - quiet) % tenth < static_cast<size_t>(block)) {
                        p.e->setParameter(p.e, f.parameter, flips % 2 ? f.a : f.b);
                        ++flips;
                    }
                });
                const double worst = std::max(peak(y.l, quiet), peak(y.r, quiet));
                std::printf("%-12s %g-%g%s at %5.0f Hz in silence%s: peak %.1f dBFS\n", f.name, f.a, f.b,
                            f.bass != 0.5f ? " tilted" : "", rate, afterSine ? " after a sine" : "", dB(worst));
                EXPECT_LT(dB(worst), -60.0) << f.name << " " << f.a << "-" << f.b << " at " << rate << " Hz"
                                            << (afterSine ? " after a sine" : "");
            }
        }
    }
}

TEST(PluginWhilePlaying, KnobsSweptIn50MsMakeNoStepsOfTheirOwn) {
    // Each knob from 0 to 1 in 50 ms, moved before every block of 64 frames as a host's
    // automation does, under the sine: no step between samples larger than the largest the
    // output makes at either end of the sweep, plus 0.05.
    for (float rate : {44100.0f, 96000.0f}) {
        const int block = 64;
        const size_t lead = static_cast<size_t>(rate * 0.4), sweep = static_cast<size_t>(rate / 20);
        const auto x = sine(0.6, rate);
        for (int knob : {kGain, kBass, kTreble, kVol, kInput}) {
            for (float cpu : {1.0f, 0.0f}) {
                double own = 0;
                for (float v : {0.0f, 1.0f}) {
                    const Stereo y = Player(rate, block, {{knob, v}, {kCpu, cpu}}).run(x);
                    own = std::max(own, largestStep(y.l, lead));
                }
                Player p(rate, block, {{knob, 0.0f}, {kCpu, cpu}});
                const Stereo y = p.run(x, [&](size_t at) {
                    if (at >= lead && at <= lead + sweep)
                        p.e->setParameter(p.e, knob, static_cast<float>(at - lead) / sweep);
                });
                const double worst = largestStep(y.l, lead);
                char name[32];
                p.e->dispatcher(p.e, effGetParamName, knob, 0, name, 0);
                std::printf("%-6s CPU %g at %5.0f Hz: own largest step %.4f, while sweeping %.4f\n", name, cpu, rate,
                            own, worst);
                EXPECT_LE(worst, own + 0.05) << name << " CPU " << cpu << " at " << rate << " Hz";
            }
        }
    }
}
