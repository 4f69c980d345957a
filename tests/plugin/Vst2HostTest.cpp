// A VST 2 host of our own: loads the built plug-in with dlopen exactly as a host
// does and checks what hosts rely on.
#include <dlfcn.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>

#include "tests/plugin/Vst2Plugin.h"

using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

// The signal on both inputs, interleaved.
std::vector<float> onBothInputs(const std::vector<float>& x) {
    std::vector<float> both(2 * x.size());
    for (size_t i = 0; i < x.size(); ++i) both[2 * i] = both[2 * i + 1] = x[i];
    return both;
}

} // namespace

TEST(PluginVst2Host, LoadsAndAnswersAsAnEffect) {
    ASSERT_NE(nullptr, module().handle) << dlerror();
    ASSERT_NE(nullptr, module().entry);
    ASSERT_NE(nullptr, module().mainEntry);
    EXPECT_EQ(nullptr, module().entry(silentHost));  // a host that gives no version gets no effect
    Plugin p;
    ASSERT_NE(nullptr, p.e);
    EXPECT_EQ(kEffectMagic, p.e->magic);
    EXPECT_EQ(0x71387966, p.e->uniqueID);
    EXPECT_EQ(9, p.e->numParams);
    EXPECT_EQ(1, p.e->numPrograms);
    EXPECT_EQ(2, p.e->numInputs);
    EXPECT_EQ(2, p.e->numOutputs);
    EXPECT_TRUE(p.e->flags & effFlagsCanReplacing);
    EXPECT_TRUE(p.e->flags & effFlagsHasEditor);
    EXPECT_FALSE(p.e->flags & effFlagsProgramChunks);
    EXPECT_NE(p.e->process, p.e->processReplacing);
    const char* names[] = {"Input", "Gain", "Vol", "Oversamp", "Bass", "Treble", "EQ_Posit", "Stereo", "CPU"};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(names[i], p.text(effGetParamName, i));
    EXPECT_EQ("", p.text(effGetParamName, 9));
    EXPECT_EQ("Tallowbridge Labs", p.text(effGetVendorString));
    EXPECT_EQ("Kelm", p.text(effGetProductString));
    EXPECT_EQ(1080, p.call(effGetVendorVersion));
    EXPECT_EQ(kPlugCategEffect, p.call(effGetPlugCategory));
    EXPECT_EQ(2400, p.call(effGetVstVersion));
    char can[] = "2in2out";
    EXPECT_EQ(1, p.call(effCanDo, 0, 0, can));
    char midi[] = "receiveVstMidiEvent";
    EXPECT_EQ(-1, p.call(effCanDo, 0, 0, midi));
    // Display texts a musician reads, within 8 characters.
    p.e->setParameter(p.e, 3, 1.0f);
    EXPECT_EQ("4x", p.text(effGetParamDisplay, 3));
    p.e->setParameter(p.e, 3, 0.5f);
    EXPECT_EQ("2x", p.text(effGetParamDisplay, 3));
    EXPECT_EQ("Table", p.text(effGetParamDisplay, 8));
    EXPECT_EQ("dB", p.text(effGetParamLabel, 0));
    for (int i = 0; i < 9; ++i) EXPECT_LE(p.text(effGetParamDisplay, i).size(), 8u);
}

TEST(PluginVst2Host, ExportsOnlyTheTwoEntryPoints) {
    EXPECT_EQ((std::vector<std::string>{"VSTPluginMain", "main"}), exportedSymbols(KELM_VST2_PATH, true));
}

TEST(PluginVst2Host, ParametersRoundTrip) {
    Plugin p;
    for (int i = 0; i < 9; ++i) {
        if (i == 3) continue;  // Oversampling takes only its three positions
        p.e->setParameter(p.e, i, 0.25f + 0.05f * i);
        EXPECT_FLOAT_EQ(0.25f + 0.05f * i, p.e->getParameter(p.e, i));
    }
    // Oversampling: any value in between lands on 1x, 2x or 4x.
    const float positions[][2] = {{0.1f, 0.0f}, {0.3f, 0.5f}, {0.6f, 0.5f}, {0.8f, 1.0f}, {-1.0f, 0.0f}, {7.0f, 1.0f}};
    for (auto& v : positions) {
        p.e->setParameter(p.e, 3, v[0]);
        EXPECT_EQ(v[1], p.e->getParameter(p.e, 3)) << v[0];
    }
    p.e->setParameter(p.e, 12, 0.7f);  // out of range: ignored
    EXPECT_EQ(0.0f, p.e->getParameter(p.e, 12));
}

TEST(PluginVst2Host, OutputEqualsTheKelmTool) {
    auto x = testSignal(48000);
    std::string in = tempPath("host_in.wav"), out = tempPath("host_out.wav");
    writeWav(in, x, 1, 48000);
    auto r = run(std::string(KELM_CLI_PATH) + " render --in " + in + " --out " + out +
                 " --set Gain=0.8 --set Bass=0.3 --set Oversampling=1 --set CPU=0 --block 512");
    ASSERT_EQ(0, r.status) << r.output;
    auto tool = readWav(out);
    auto host = render(x, 1, 512, [] { return 512; }, {{1, 0.8f}, {4, 0.3f}, {3, 1.0f}, {8, 0.0f}});
    EXPECT_EQ(tool, host);
    std::remove(in.c_str());
    std::remove(out.c_str());
}

TEST(PluginVst2Host, ChannelRules) {
    auto x = testSignal(9600);
    // One input given: both outputs sound, alike.
    auto mono = render(x, 1, 480, [] { return 480; });
    double energy = 0;
    for (size_t i = 0; i < mono.size(); i += 2) {
        ASSERT_NEAR(mono[i], mono[i + 1], 1e-6);
        energy += mono[i] * mono[i];
    }
    EXPECT_GT(energy, 1.0);
    // A second buffer that the host reports as unconnected is not read.
    pinAnswer = 1;
    auto unconnected = render(onBothInputs(x), 2, 480, [] { return 480; });
    pinAnswer = 0;
    for (size_t i = 0; i < mono.size(); ++i) ASSERT_EQ(mono[i], unconnected[i]);
    // Stereo on: the right output is the left one, sample for sample.
    auto same = render(onBothInputs(x), 2, 480, [] { return 480; }, {{7, 1.0f}});
    for (size_t i = 0; i < same.size(); i += 2) ASSERT_EQ(same[i], same[i + 1]);
}

TEST(PluginVst2Host, SuspendRefusesBlocks) {
    Plugin p;
    p.start(48000, 64);
    std::vector<float> l(64, 0.0f), r(64, 0.0f);
    float* in[2] = {l.data(), r.data()};
    float* out[2] = {l.data(), r.data()};
    p.e->processReplacing(p.e, in, out, 64);
    p.call(effMainsChanged, 0, 0);
    bool threw = false;
    try {
        p.e->processReplacing(p.e, in, out, 64);
    } catch (...) {
        threw = true;  // the engine's KELMException passes through to the host
    }
    EXPECT_TRUE(threw);
    p.call(effMainsChanged, 0, 1);
    EXPECT_NO_THROW(p.e->processReplacing(p.e, in, out, 64));
}
