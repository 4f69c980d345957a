// The two channels of the built-in preamp run side by side (graphs built alike paired by
// the Driver, their elements run in one loop): the samples must be those of running every
// graph alone, to the bit, whatever the settings, the block split or a difference between
// the channels.
#include <algorithm>
#include <cmath>
#include <set>

#include <gtest/gtest.h>

#include "engine/Context.h"
#include "engine/Element.h"
#include "plugin/core/KelmEffect.h"
#include "tests/plugin/CoreRender.h"

using namespace kelm;
using namespace kelm::test;

namespace {

typedef std::vector<std::vector<float>> Render;  // left, right

// 0.15 s of different material per channel, loud enough that the second stage's grid
// conducts, in blocks of `block`; `midway` runs halfway through.
Render render(bool twinning, const std::vector<std::pair<std::string, float>>& params, int block,
              const CoreChange& midway) {
    std::vector<float> l(7200), r(7200);
    for (size_t i = 0; i < l.size(); ++i) {
        const double t = static_cast<double>(i) / 48000.0;
        l[i] = static_cast<float>(0.9 * std::sin(2 * M_PI * 220 * t) + 0.05 * std::sin(2 * M_PI * 5100 * t));
        r[i] = static_cast<float>(0.6 * std::sin(2 * M_PI * 331 * t + 1.0));
    }
    return renderCore(l, r, named(params), block, l.size() / 2, midway,
                      [twinning](KelmEffect& e) { e.getDriver().setTwinning(twinning); });
}

void expectSame(const Render& a, const Render& b, const std::string& what) {
    EXPECT_EQ(a, b) << what;
    // Not silence, and the channels do differ: otherwise the comparison proves little.
    float peak = 0;
    for (float v : a[1]) peak = std::max(peak, std::fabs(v));
    EXPECT_GT(peak, 0.01f) << what;
    EXPECT_NE(a[0], a[1]) << what;
}

} // namespace

TEST(PluginTwinChannels, TheChannelsRunSideBySide) {
    KelmEffect effect;
    effect.setSampleRate(48000);
    effect.setBlockSize(512);
    Driver& driver = effect.getDriver();
    std::set<std::pair<std::string, std::string>> pairs;
    for (auto& step : driver.getSchedule())
        if (step.second >= 0) {
            std::string a = driver.getGraphs()[step.first]->name(), b = driver.getGraphs()[step.second]->name();
            pairs.insert({std::min(a, b), std::max(a, b)});
        }
    // The oversampling pair, the tables' stages, the VC filter and the tone stacks run side by
    // side; the second stage's circuits one after the other, each in its kernel's loop.
    for (const char* g : {"G1", "V1", "V2-DSP", "G2", "Baxandall", "Baxandall_pre"})
        EXPECT_EQ(1u, pairs.count({g, std::string(g) + "S"})) << g;
    EXPECT_EQ(0u, pairs.count({"Triodes", "TriodesS"}));
}

TEST(PluginTwinChannels, SamplesAreThoseOfEachGraphAlone) {
    for (float cpu : {1.0f, 0.0f})
        for (float oversampling : {0.0f, 0.5f, 1.0f}) {
            const std::vector<std::pair<std::string, float>> params = {
                {"CPU", cpu}, {"Oversampling", oversampling}, {"Input", 0.8f}, {"Gain", 0.9f}};
            const std::string what = "CPU " + std::to_string(cpu) + ", Oversampling " + std::to_string(oversampling);
            for (int block : {512, 37}) {
                if (cpu == 0.0f && block == 37 && oversampling != 1.0f) continue;  // the circuit path is slow
                expectSame(render(true, params, block, {}), render(false, params, block, {}),
                           what + ", blocks of " + std::to_string(block));
            }
        }
}

TEST(PluginTwinChannels, ChannelsThatDifferStillMatchTheirOwnRuns) {
    const std::vector<std::pair<std::string, float>> params = {{"CPU", 1}, {"Oversampling", 1}, {"Gain", 0.9f}};
    // Settings moved midway, on one channel only: a Wiper and the oversampling factor (the
    // right channel then runs at another rate, so its graphs cannot pair).
    auto gainRight = [](KelmEffect& e) { e.getDriver().getGraph("V2-DSPS").getContext()->getElement("VCS")->propertyChanged("Wiper", 0.3f); };
    expectSame(render(true, params, 100, gainRight), render(false, params, 100, gainRight), "Wiper of one channel");
    auto factorRight = [](KelmEffect& e) {
        e.getDriver().getGraph("G1S").getContext()->getElement("1")->propertyChanged("Factor", 2.0f);
        e.getDriver().getGraph("G2S").getContext()->getElement("1")->propertyChanged("Factor", 2.0f);
    };
    expectSame(render(true, params, 100, factorRight), render(false, params, 100, factorRight), "Factor of one channel");
    // The tone stacks: a knob of one channel's moved (its matrix changes), in either place.
    for (float eq : {0.0f, 1.0f}) {
        auto bassRight = [](KelmEffect& e) {
            for (const char* g : {"BaxandallS", "Baxandall_preS"})
                e.getDriver().getGraph(g).getContext()->getElement("Bass")->propertyChanged("Wiper", 0.9f);
        };
        auto withEq = params;
        withEq.push_back({"EQ_Position", eq});
        withEq.push_back({"Treble", 0.8f});
        expectSame(render(true, withEq, 100, bassRight), render(false, withEq, 100, bassRight),
                   "Bass of one channel, EQ_Position " + std::to_string(eq));
    }
    // The circuit path: one channel's gain moved midway changes its circuit's matrix.
    auto potRight = [](KelmEffect& e) {
        e.getDriver().getGraph("TriodesS").getContext()->getElement("Pot1")->propertyChanged("Wiper", 0.2f);
    };
    const std::vector<std::pair<std::string, float>> circuit = {{"CPU", 0}, {"Oversampling", 0.5f}, {"Gain", 0.9f}};
    expectSame(render(true, circuit, 100, potRight), render(false, circuit, 100, potRight), "Pot1 of one channel");
    // Mono bypasses the right channel's graphs: their partners run alone.
    auto mono = [](KelmEffect& e) { e.setParameter(e.parameterIndex("Stereo"), 1.0f); };
    const Render a = render(true, params, 512, mono), b = render(false, params, 512, mono);
    EXPECT_EQ(a, b);
}
