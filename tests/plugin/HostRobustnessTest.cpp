// A demanding host: block splits of every size, sample rates from 22.05 to 384 kHz, broken
// input, parameters moved from another thread at random, instances side by side, and what a
// musician hears right after the plug-in is switched on.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "tests/plugin/Vst2Plugin.h"

using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

enum { kInput, kGain, kVol, kOversampling, kBass, kTreble, kEqPosition, kStereo, kCpu };

typedef std::vector<std::pair<int, float>> Settings;

// An instance opened at a rate and block size with its settings, switched on.
struct Instance : Plugin {
    int maxBlock;
    Instance(float rate, int block, const Settings& settings) : maxBlock(block) {
        for (auto& s : settings) e->setParameter(e, s.first, s.second);
        start(rate, block);
    }
    // x (both channels) in blocks whose sizes come from next(), or of the block size; the
    // output interleaved.
    template <typename NextBlock>
    std::vector<float> run(const std::vector<float>& x, NextBlock next) {
        return play(x, next, [](size_t) {});
    }
    std::vector<float> run(const std::vector<float>& x) {
        return run(x, [this] { return maxBlock; });
    }
};

// A guitar-like test signal at the given rate: two partials and a little noise, near full scale.
std::vector<float> signal(double seconds, double rate, float level = 0.7f) {
    std::vector<float> x(static_cast<size_t>(seconds * rate));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(-0.02f, 0.02f);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = level * (0.7f * std::sin(2 * M_PI * 196 * i / rate) + 0.3f * std::sin(2 * M_PI * 2350 * i / rate)) + u(rng);
    return x;
}

// Counts the samples that are NaN, infinite or subnormal.
size_t unfit(const std::vector<float>& y, size_t from = 0) {
    size_t n = 0;
    for (size_t i = from; i < y.size(); ++i) {
        const int c = std::fpclassify(y[i]);
        n += c == FP_NAN || c == FP_INFINITE || c == FP_SUBNORMAL;
    }
    return n;
}

double peakDb(const std::vector<float>& y, size_t from, size_t to) {
    double p = 0;
    for (size_t i = from; i < std::min(to, y.size()); ++i) p = std::max(p, static_cast<double>(std::fabs(y[i])));
    return 20 * std::log10(p + 1e-30);
}

double rms(const std::vector<float>& y, size_t from, size_t to) {
    double s = 0;
    for (size_t i = from; i < to; ++i) s += static_cast<double>(y[i]) * y[i];
    return std::sqrt(s / std::max<size_t>(1, to - from));
}

const Settings kCircuit4x = {{kCpu, 0.0f}, {kOversampling, 1.0f}, {kGain, 0.8f}, {kBass, 0.3f}};
const Settings kTable2xPre = {{kCpu, 1.0f}, {kOversampling, 0.5f}, {kEqPosition, 1.0f}, {kTreble, 0.9f}, {kStereo, 1.0f}};

} // namespace

TEST(PluginDemandingHost, AnyBlockSplitGivesTheSameSamples) {
    // Random splits up to the announced size, and blocks larger than it, against whole blocks.
    const auto x = signal(0.5, 48000);
    for (const Settings& s : {kCircuit4x, kTable2xPre, Settings{{kOversampling, 0.0f}}}) {
        const auto whole = Instance(48000, 512, s).run(x);
        std::mt19937 rng(11);
        std::uniform_int_distribution<int> small(1, 512), large(513, 5000);
        const auto split = Instance(48000, 512, s).run(x, [&] { return small(rng); });
        const auto larger = Instance(48000, 512, s).run(x, [&] { return large(rng); });
        EXPECT_EQ(whole, split);
        EXPECT_EQ(whole, larger);
        EXPECT_GT(rms(whole, 0, whole.size()), 0.01);
        EXPECT_EQ(0u, unfit(whole));
    }
}

TEST(PluginDemandingHost, SettingsMadeWhileRunningGiveTheSamplesOfSettingsMadeBefore) {
    // As Ardour does: silence through the plug-in before the session's values are set. Once
    // the silence has left every state at rest, the samples are those of an instance set up
    // with those values from the start, up to where the circuit path's Newton iteration
    // stops (it starts from the state at rest): under -100 dBFS. A solver whose samples
    // depend on when its matrix was last assembled misses that by 75 dB.
    const Settings session = {{kCpu, 0.0f}, {kOversampling, 1.0f}, {kGain, 0.8f}, {kBass, 0.3f}};
    const std::vector<float> silence(48000, 0.0f);
    const auto x = signal(0.3, 48000);
    Instance before(48000, 512, session);
    before.run(silence);
    const auto expected = before.run(x);
    Instance during(48000, 512, {});
    during.run(std::vector<float>(12000, 0.0f));
    for (auto& s : session) during.e->setParameter(during.e, s.first, s.second);
    during.run(silence);
    const auto got = during.run(x);
    ASSERT_EQ(expected.size(), got.size());
    double worst = 0;
    for (size_t i = 0; i < expected.size(); ++i) worst = std::max(worst, std::fabs(double(expected[i]) - got[i]));
    std::printf("settings made while running: worst difference %.3g\n", worst);
    EXPECT_LT(worst, 1e-5);
    EXPECT_GT(rms(expected, 0, expected.size()), 0.01);
}

TEST(PluginDemandingHost, EveryRateAndSettingGivesFiniteOutput) {
    // Per rate, each path (CPU) at each oversampling position; within one instance the switches
    // and knobs then take every combination of EQ position and stereo, knobs at random corners.
    std::mt19937 rng(21);
    const float corners[] = {0.0f, 0.5f, 1.0f};
    for (float rate : {22050.0f, 44100.0f, 48000.0f, 96000.0f, 192000.0f, 384000.0f}) {
        for (float cpu : {0.0f, 1.0f}) {
            for (float oversampling : {0.0f, 0.5f, 1.0f}) {
                Instance p(rate, 256, {{kCpu, cpu}, {kOversampling, oversampling}});
                const auto x = signal(0.02, rate, 1.0f);
                for (int combination = 0; combination < 4; ++combination) {
                    p.e->setParameter(p.e, kEqPosition, combination & 1 ? 1.0f : 0.0f);
                    p.e->setParameter(p.e, kStereo, combination & 2 ? 1.0f : 0.0f);
                    for (int k : {kInput, kGain, kVol, kBass, kTreble}) p.e->setParameter(p.e, k, corners[rng() % 3]);
                    const auto y = p.run(x);
                    ASSERT_EQ(0u, unfit(y)) << rate << " Hz, CPU " << cpu << ", oversampling " << oversampling
                                            << ", combination " << combination;
                }
            }
        }
    }
}

TEST(PluginDemandingHost, BrokenInputIsForgottenWithinASecond) {
    // NaN, infinities and absurd levels in the input; a second later the output is finite and
    // sounds as it does for the clean signal.
    const auto clean = signal(1.5, 48000);
    for (const Settings& s : {kCircuit4x, kTable2xPre}) {
        auto broken = clean;
        for (size_t i = 4800; i < 4900; ++i) broken[i] = (i % 4 == 0)   ? NAN
                                                         : (i % 4 == 1) ? INFINITY
                                                         : (i % 4 == 2) ? -INFINITY
                                                                        : 1e30f;
        const auto reference = Instance(48000, 480, s).run(clean);
        const auto y = Instance(48000, 480, s).run(broken);
        const size_t second = 2 * (4900 + 48000);
        EXPECT_EQ(0u, unfit(y, second));
        const double a = rms(y, second, y.size()), b = rms(reference, second, reference.size());
        EXPECT_NEAR(1.0, a / b, 0.05) << a << " " << b;
    }
}

TEST(PluginDemandingHost, ParametersMovedAtRandomWhileTheAudioThreadRuns) {
    // A second thread sets all nine parameters to random values, out-of-range ones and NaN
    // included, for three seconds while blocks of random size run.
    Instance p(48000, 256, {});
    std::atomic<bool> stop{false};
    std::atomic<long> moves{0};
    std::thread control([&] {
        std::mt19937 rng(9);
        std::uniform_real_distribution<float> u(-0.2f, 1.2f);
        while (!stop) {
            for (int i = 0; i < 9; ++i) p.e->setParameter(p.e, i, rng() % 50 == 0 ? NAN : u(rng));
            ++moves;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    std::mt19937 rng(4);
    std::uniform_int_distribution<int> size(1, 256);
    const auto x = signal(0.1, 48000);
    size_t blocks = 0, bad = 0;
    std::string failure;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < end && failure.empty()) {
        try {
            const auto y = p.run(x, [&] { return size(rng); });
            bad += unfit(y);
            blocks += x.size() / 128;
        } catch (const kelm::KELMException& e) {
            failure = e.message();
        } catch (...) {
            failure = "an exception of another kind";
        }
    }
    stop = true;
    control.join();
    EXPECT_EQ("", failure);
    EXPECT_EQ(0u, bad);
    EXPECT_GT(moves.load(), 100);
    EXPECT_GT(blocks, 100u);
    for (int i = 0; i < 9; ++i) {
        const float v = p.e->getParameter(p.e, i);
        EXPECT_TRUE(v >= 0.0f && v <= 1.0f) << i << " " << v;
    }
}

TEST(PluginDemandingHost, SwitchedOnItIsSilentFromTheFirstSample) {
    // Silence in right after resume: below -90 dBFS from the first sample, and after a
    // suspend, a change of settings and a second resume. Default knobs at 48 kHz, every
    // knob turned fully up at 48 and 96 kHz. The stages amplify whatever the arithmetic
    // leaves by some 60 dB and the treble control the top octave by another 20: a float
    // recursion in the decimator, whose poles sit near z = -1 at a factor of 1, left a
    // limit cycle at -76 dBFS there, every knob up.
    const Settings defaults = {{kStereo, 0.0f}};
    const Settings loudest = {{kVol, 1.0f}, {kBass, 1.0f}, {kTreble, 1.0f}, {kGain, 1.0f}, {kInput, 1.0f}, {kStereo, 0.0f}};
    for (const auto& knobs : {std::make_pair(48000.0f, defaults), std::make_pair(48000.0f, loudest),
                              std::make_pair(96000.0f, loudest)}) {
        const float rate = knobs.first;
        const size_t tenth = static_cast<size_t>(rate / 10);
        const std::vector<float> silence(static_cast<size_t>(rate * 0.6), 0.0f);
        for (float cpu : {1.0f, 0.0f}) {
            for (float oversampling : {0.0f, 0.5f, 1.0f}) {
                for (float eq : {0.0f, 1.0f}) {
                    Settings s = knobs.second;
                    s.insert(s.end(), {{kCpu, cpu}, {kOversampling, oversampling}, {kEqPosition, eq}});
                    Instance p(rate, 512, s);
                    for (int round = 0; round < 2; ++round) {
                        const auto y = p.run(silence);
                        SCOPED_TRACE(testing::Message() << rate << " Hz, CPU " << cpu << ", oversampling " << oversampling
                                                        << ", EQ " << eq << ", round " << round << ": first 100 ms "
                                                        << peakDb(y, 0, 2 * tenth) << " dBFS");
                        EXPECT_LT(peakDb(y, 0, y.size()), -90.0);
                        EXPECT_EQ(0u, unfit(y));
                        p.call(effMainsChanged, 0, 0);
                        p.e->setParameter(p.e, kBass, round ? 1.0f : 0.2f);
                        p.call(effMainsChanged, 0, 1);
                    }
                }
            }
        }
    }
}

TEST(PluginDemandingHost, ProcessingBeforeTheHostIsReadyIsSafe) {
    std::vector<float> l(256, 0.5f), r(256, 0.5f), ol(256, 1.0f), orr(256, 1.0f);
    float* in[2] = {l.data(), r.data()};
    float* out[2] = {ol.data(), orr.data()};
    Plugin p;
    p.e->processReplacing(p.e, in, out, 256);  // no rate, no block size: silence
    for (int i = 0; i < 256; ++i) ASSERT_TRUE(ol[i] == 0.0f && orr[i] == 0.0f);
    p.call(effSetSampleRate, 0, 0, nullptr, 44100.0f);
    ol.assign(256, 1.0f);
    p.e->processReplacing(p.e, in, out, 256);
    EXPECT_EQ(0.0f, ol[0]);
    p.call(effSetBlockSize, 0, 128);  // ready but never resumed: it runs, cold, and stays finite
    for (int b = 0; b < 20; ++b) {
        p.e->processReplacing(p.e, in, out, 256);
        for (int i = 0; i < 256; ++i) ASSERT_TRUE(std::isfinite(ol[i]) && std::isfinite(orr[i]));
    }
}

TEST(PluginDemandingHost, TwoInstancesOnTwoThreadsGiveWhatEachGivesAlone) {
    const auto x = signal(0.5, 48000);
    const auto first = Instance(48000, 300, kCircuit4x).run(x);
    const auto second = Instance(48000, 300, kTable2xPre).run(x);
    Instance a(48000, 300, kCircuit4x), b(48000, 300, kTable2xPre);
    std::vector<float> ya, yb;
    std::thread ta([&] { ya = a.run(x); });
    std::thread tb([&] { yb = b.run(x); });
    ta.join();
    tb.join();
    EXPECT_TRUE(first == ya);
    EXPECT_TRUE(second == yb);
    EXPECT_FALSE(first == second);
}

TEST(PluginDemandingHost, HostsLearnTheStepsAndSwitches) {
    Plugin p;
    VstParameterProperties props;
    auto get = [&](int index) {
        std::memset(&props, 0x55, sizeof props);
        return p.call(effGetParameterProperties, index, 0, &props);
    };
    ASSERT_EQ(1, get(kOversampling));
    EXPECT_STREQ("Oversampling", props.label);
    EXPECT_TRUE(props.flags & kVstParameterUsesIntegerMinMax);
    EXPECT_FALSE(props.flags & kVstParameterIsSwitch);
    EXPECT_EQ(0, props.minInteger);
    EXPECT_EQ(2, props.maxInteger);
    EXPECT_FLOAT_EQ(0.5f, props.stepFloat);
    for (int k : {kEqPosition, kStereo, kCpu}) {
        ASSERT_EQ(1, get(k));
        EXPECT_TRUE(props.flags & kVstParameterIsSwitch) << k;
    }
    ASSERT_EQ(1, get(kEqPosition));
    EXPECT_STREQ("EQ_Position", props.label);
    EXPECT_STREQ("EQ_Posi", props.shortLabel);
    for (int k : {kInput, kGain, kVol, kBass, kTreble}) {
        ASSERT_EQ(1, get(k));
        EXPECT_FALSE(props.flags & (kVstParameterIsSwitch | kVstParameterUsesIntegerMinMax)) << k;
        EXPECT_EQ(k, props.displayIndex);
    }
    EXPECT_EQ(0, get(9));
    // The texts follow what the host set, a value between steps included.
    const std::pair<float, const char*> steps[] = {{0.2f, "1x"}, {0.3f, "2x"}, {0.74f, "2x"}, {0.9f, "4x"}};
    for (auto& s : steps) {
        p.e->setParameter(p.e, kOversampling, s.first);
        EXPECT_EQ(s.second, p.text(effGetParamDisplay, kOversampling)) << s.first;
    }
}
