// Kelm.clap of the Windows builds (build-win32/, build-win64/, made by
// scripts/build-windows.sh) in our CLAP host under wine: its exports and imports, the list
// of plug-ins and parameters, renders with parameters set by events equal to kelm render on
// Linux, a change in the middle of a block equal to the effect core split there, state
// from one instance into another, and Kelm Circuit given a state made by the Linux
// Kelm.clap rendering what the Linux Kelm.clap renders of it.
#include <cmath>
#include <iostream>
#include <map>

#include "plugin/core/KelmEffect.h"
#include "tests/clap/ClapTestHost.h"
#include "tests/windows/WindowsBuild.h"

using namespace kelm;
using namespace kelm::test;

namespace {

using ClapWindows = WindowsBuildTest;

struct ClapHostRun {
    CommandResult result;
    std::string events, midblock, circuit;  // output files
};

std::vector<float> stereoInput() {
    std::vector<float> x;
    for (int i = 0; i < 12000; ++i) {
        x.push_back(static_cast<float>(0.3 * std::sin(2 * M_PI * 220 * i / 48000) + 0.1 * std::sin(2 * M_PI * 3300 * i / 48000)));
        x.push_back(static_cast<float>(0.4 * std::sin(2 * M_PI * 110 * i / 48000)));
    }
    return x;
}

// Kelm Circuit's state as the Linux Kelm.clap saves it: a tube stage into a tone stack,
// its knobs and input level moved.
std::string circuitState() {
    ClapModule module(KELM_CLAP_PATH);
    ClapInstance p(module, "kelm.circuit");
    std::string state;
    if (!p.ok() || !p.load(readText(sourcePath("examples/cathode-follower-tonestack.xml")))) return state;
    p.flush({{0, 0.3}, {1, 0.8}, {16, 0.6}});
    p.save(state);
    return state;
}

// What the Linux Kelm.clap renders of the state, interleaved, in blocks of 512.
std::vector<float> circuitRender(const std::string& state, const std::vector<float>& interleaved) {
    ClapModule module(KELM_CLAP_PATH);
    ClapInstance p(module, "kelm.circuit");
    std::vector<float> l, r, ol, orr, out;
    if (!p.ok() || !p.load(state) || !p.activate(48000, 512, 512)) return out;
    for (size_t i = 0; i + 1 < interleaved.size(); i += 2) {
        l.push_back(interleaved[i]);
        r.push_back(interleaved[i + 1]);
    }
    p.render(l, r, ol, orr, 512);
    for (size_t i = 0; i < ol.size(); ++i) out.insert(out.end(), {ol[i], orr[i]});
    return out;
}

const ClapHostRun& hostRun(int width, const std::function<CommandResult(const std::string&)>& wine) {
    static std::map<int, ClapHostRun> runs;
    auto found = runs.find(width);
    if (found != runs.end()) return found->second;
    ClapHostRun& h = runs[width];
    const std::string tag = std::to_string(width), in = tempPath("clapwin" + tag + "_in.f32");
    writeFloats(in, stereoInput());
    const std::string prefix = tempPath("clapwin" + tag + "_");
    const std::string state = prefix + "circuit.state";
    const std::string bytes = circuitState();
    FILE* stateFile = std::fopen(state.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), stateFile);
    std::fclose(stateFile);
    h.result = wine("KelmClapHost.exe Kelm.clap Z:" + in + " Z:" + prefix + " Z:" + state);
    std::cout << h.result.output;
    h.events = prefix + "events.f32";
    h.midblock = prefix + "midblock.f32";
    h.circuit = prefix + "circuit.f32";
    std::remove(in.c_str());
    std::remove(state.c_str());
    return h;
}

// The core as kelm render drives it, over the same input, with Gain changed before frame `at`.
std::vector<float> renderCore(const std::vector<float>& interleaved, size_t at, float gain) {
    KelmEffect effect;
    const std::pair<const char*, float> settings[] = {{"Gain", 0.8f}, {"Bass", 0.3f}, {"Treble", 0.65f}, {"CPU", 0.0f},
                                                      {"Oversampling", 1.0f}};
    for (const auto& s : settings) effect.setParameter(effect.parameterIndex(s.first), s.second);
    effect.setSampleRate(48000);
    effect.setBlockSize(512);
    effect.resume();
    const size_t n = interleaved.size() / 2;
    std::vector<float> l(n), r(n), ol(n), orr(n), out;
    for (size_t i = 0; i < n; ++i) {
        l[i] = interleaved[2 * i];
        r[i] = interleaved[2 * i + 1];
    }
    auto part = [&](size_t from, size_t to) {
        float* in[2] = {l.data() + from, r.data() + from};
        float* o[2] = {ol.data() + from, orr.data() + from};
        effect.process(in, o, static_cast<int>(to - from));
    };
    for (size_t b = 0; b < n; b += 512) {
        const size_t end = std::min(n, b + 512);
        if (at >= b && at < end) {
            part(b, at);
            effect.setParameter(effect.parameterIndex("Gain"), gain);
            part(at, end);
        } else {
            part(b, end);
        }
    }
    for (size_t i = 0; i < n; ++i) out.insert(out.end(), {ol[i], orr[i]});
    return out;
}

// How far apart a Windows run may be: to the bit on the same CPU, and for a 32-bit run
// under qemu, the circuit path's few 1e-4 of peak (WindowsDllTest.cpp says why).
double tolerance(bool emulated) { return emulated ? 1e-3 : 0.0; }

} // namespace

TEST_P(ClapWindows, ExportsTheEntryAndImportsOnlySystemDlls) {
    EXPECT_EQ(std::vector<std::string>{"clap_entry"}, exportsOf("Kelm.clap"));
}

TEST_P(ClapWindows, OurHostListsRendersAndMovesState) {
    const ClapHostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(0, h.result.status) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("KelmClapHost (" + std::to_string(width()) + "-bit)"));
    EXPECT_NE(std::string::npos, h.result.output.find("plugin kelm.preamp|Kelm Preamp|Tallowbridge Labs|1.0.80"));
    EXPECT_NE(std::string::npos, h.result.output.find("param 3|Oversampling|0|2|0|1x|65569")) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("param 0|Input|0|1|0.5|+0.0 dB|32")) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("plugin kelm.circuit|Kelm Circuit|Tallowbridge Labs|1.0.80"));
    EXPECT_NE(std::string::npos, h.result.output.find("param 18|Oversampling|0|3|0|1x|65569")) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("param 16|Input level|0|1|0.5|+0.0 dB|32")) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("circuit slot 0|Treble")) << h.result.output;
    EXPECT_NE(std::string::npos, h.result.output.find("KelmClapHost: 0 failed"));
}

TEST_P(ClapWindows, KelmCircuitRendersItsStateAsOnLinux) {
    const ClapHostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(0, h.result.status) << h.result.output;
    const std::vector<float> onLinux = circuitRender(circuitState(), stereoInput()), windows = readFloats(h.circuit);
    ASSERT_EQ(stereoInput().size(), onLinux.size());
    ASSERT_EQ(onLinux.size(), windows.size());
    const double error = relativeError(onLinux, windows);
    std::cout << width() << "-bit Kelm.clap, Kelm Circuit from the Linux Kelm.clap: " << error << " of peak\n";
    EXPECT_LE(error, tolerance(emulated()));
    EXPECT_GT(relativeError(std::vector<float>(onLinux.size(), 0.0f), onLinux), 0.0);
    std::remove(h.circuit.c_str());
}

TEST_P(ClapWindows, RendersEqualKelmRenderAndTheCoreSplitMidBlock) {
    const ClapHostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(0, h.result.status) << h.result.output;
    const std::vector<float> x = stereoInput();
    const std::string wav = tempPath("clapwin_in.wav"), toolOut = tempPath("clapwin_tool.wav");
    writeWav(wav, x, 2, 48000);
    auto tool = run(std::string(KELM_CLI_PATH) + " render --in " + wav + " --out " + toolOut +
                    " --set Gain=0.8 --set Bass=0.3 --set Treble=0.65 --set CPU=0 --set Oversampling=1 --block 512");
    ASSERT_EQ(0, tool.status) << tool.output;
    const std::vector<float> reference = readWav(toolOut), events = readFloats(h.events);
    ASSERT_EQ(reference.size(), events.size());
    const double eventsError = relativeError(reference, events);
    const std::vector<float> split = renderCore(x, 3 * 512 + 200, 0.3f), midblock = readFloats(h.midblock);
    ASSERT_EQ(split.size(), midblock.size());
    const double midError = relativeError(split, midblock);
    std::cout << width() << "-bit Kelm.clap: from kelm render " << eventsError << " of peak, mid-block change from the core "
              << midError << "\n";
    EXPECT_LE(eventsError, tolerance(emulated()));
    EXPECT_LE(midError, tolerance(emulated()));
    // Where the change falls is heard: the block's first 200 frames are those without it.
    const std::vector<float> early = renderCore(x, 3 * 512, 0.3f);
    EXPECT_GT(relativeError(early, midblock), 1e-3);
    for (auto* p : {&wav, &toolOut, &h.events, &h.midblock}) std::remove(p->c_str());
}

INSTANTIATE_TEST_SUITE_P(ClapWindows64, ClapWindows, ::testing::Values(64));
INSTANTIATE_TEST_SUITE_P(ClapWindows32, ClapWindows, ::testing::Values(32));
