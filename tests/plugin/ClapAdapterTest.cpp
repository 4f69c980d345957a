// The CLAP adapter in-process, over cores of the tests' own, the preamp's and Kelm
// Circuit's: the window's edits while the audio thread runs, and the parameters' names of
// an effect whose names change (as one that loads documents does, off the main thread).
#include <atomic>
#include <thread>

#include "plugin/clap/ClapPlugin.h"
#include "plugin/core/CircuitEffect.h"
#include "plugin/core/KelmEffect.h"
#include "tests/TestUtil.h"
#include "tests/clap/ClapTestHost.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Two continuous parameters whose names change when `rename` is called.
class RenamingCore : public EffectCore {
public:
    int numberOfParameters() const override { return 2; }
    void setParameter(int index, float value) override { values[index] = value; }
    float getParameter(int index) const override { return values[index]; }
    std::string parameterName(int index) const override { return (serial ? "Renamed " : "Slot ") + std::to_string(index); }
    std::string parameterText(int, float value) const override { return std::to_string(value); }
    std::string parameterLabel(int) const override { return ""; }
    int parameterPositions(int) const override { return 0; }
    uint32_t namesSerial() const override { return serial; }
    void setSampleRate(float) override {}
    void setBlockSize(int) override {}
    void suspend() override {}
    void resume() override {}
    void process(float**, float** out, int frames, bool) override {
        for (int i = 0; i < frames; ++i) out[0][i] = values[0];
    }
    std::atomic<float> values[2] = {{0.0f}, {0.0f}};
    std::atomic<uint32_t> serial{0};
};

RenamingCore* lastRenamingCore = nullptr;

const ClapPlugin::Kind kKinds[] = {
    {{kVersion, "test.renaming", "Renaming", "", "", "", "", "1", "", nullptr},
     [] {
         auto core = std::unique_ptr<RenamingCore>(new RenamingCore());
         lastRenamingCore = core.get();
         return std::unique_ptr<EffectCore>(core.release());
     },
     nullptr},
    {{kVersion, "test.preamp", "Preamp", "", "", "", "", "1", "", nullptr},
     [] { return std::unique_ptr<EffectCore>(new KelmEffect()); }, nullptr},
    {{kVersion, "test.circuit", "Circuit", "", "", "", "", "1", "", nullptr},
     [] { return std::unique_ptr<EffectCore>(new CircuitEffect()); }, nullptr},
};
constexpr uint32_t kKindCount = sizeof kKinds / sizeof kKinds[0];

const clap_plugin_factory kFactory = {
    [](const clap_plugin_factory*) { return kKindCount; },
    [](const clap_plugin_factory*, uint32_t i) { return i < kKindCount ? &kKinds[i].descriptor : nullptr; },
    [](const clap_plugin_factory*, const clap_host* host, const char* id) -> const clap_plugin* {
        for (const ClapPlugin::Kind& k : kKinds)
            if (std::string(id) == k.descriptor.id) return (new ClapPlugin(k, host))->clapPlugin();
        return nullptr;
    },
};

ClapPlugin* adapterOf(const ClapInstance& i) { return static_cast<ClapPlugin*>(i.plugin->plugin_data); }

} // namespace

TEST(ClapAdapter, NewNamesAreRescannedOnTheMainThread) {
    ClapModule module(&kFactory);
    ClapInstance p(module, "test.renaming");
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(nullptr, p.gui);  // a plug-in without a window offers none
    EXPECT_EQ("Slot 1", std::string(p.info(1).name));
    p.plugin->on_main_thread(p.plugin);
    EXPECT_TRUE(p.rescans.empty());
    lastRenamingCore->serial = 1;
    p.plugin->on_main_thread(p.plugin);
    EXPECT_EQ(std::vector<uint32_t>{kRescanInfo | kRescanText}, p.rescans);
    EXPECT_EQ("Renamed 1", std::string(p.info(1).name));
    p.plugin->on_main_thread(p.plugin);
    EXPECT_EQ(1u, p.rescans.size());  // once per change
}

// A document loaded on Kelm Circuit's own thread (as its window loads one): the next block
// asks the host for on_main_thread, and from there the host is told to rescan the names,
// which come with the new document's defaults.
TEST(ClapAdapter, NamesOfADocumentLoadedOffTheMainThreadReachTheHostFromIt) {
    ClapModule module(&kFactory);
    ClapInstance p(module, "test.circuit");
    ASSERT_TRUE(p.ok());
    ASSERT_TRUE(p.activate(48000, 256, 256));
    std::vector<float> x(256, 0.1f), l, r;
    p.render(x, x, l, r, 256);
    // Activation rebuilt the document at the host's rate: the same names, nothing to rescan.
    const int callbacks = p.callbacks;
    p.plugin->on_main_thread(p.plugin);
    EXPECT_TRUE(p.rescans.empty());
    auto* core = static_cast<CircuitEffect*>(adapterOf(p)->getCore());
    core->loadText(readText(sourcePath("examples/bassman-tonestack.cir")), "bassman-tonestack.cir");
    ASSERT_TRUE(core->waitForLoads(10));
    EXPECT_EQ("Treble", core->parameterName(0));
    p.render(x, x, l, r, 256);
    EXPECT_EQ(callbacks + 1, p.callbacks);
    EXPECT_TRUE(p.rescans.empty());  // never from the audio thread
    p.render(x, x, l, r, 256);
    EXPECT_EQ(callbacks + 1, p.callbacks);  // once per change
    p.plugin->on_main_thread(p.plugin);
    EXPECT_EQ(std::vector<uint32_t>{kRescanInfo | kRescanText}, p.rescans);
    const char* names[] = {"Treble", "Bass", "Middle", "-"};
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(names[i], std::string(p.info(i).name));
        EXPECT_FLOAT_EQ(core->parameterDefault(static_cast<int>(i)), static_cast<float>(p.info(i).default_value));
    }
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();
}

TEST(ClapAdapter, EditsFromTheWindowWhileTheAudioThreadRuns) {
    ClapModule module(&kFactory);
    ClapInstance p(module, "test.preamp");
    ASSERT_TRUE(p.ok());
    ASSERT_TRUE(p.activate(48000, 64, 64));
    ClapPlugin* adapter = adapterOf(p);
    std::atomic<bool> stop{false};
    std::atomic<int> blocks{0};
    std::thread audio([&] {
        std::vector<float> x(64, 0.1f), l, r;
        while (!stop.load()) {
            p.render(x, x, l, r, 64);
            blocks++;
        }
    });
    const int gain = 1, bass = 4;
    for (int g = 0; g < 200; ++g) {
        const int index = g % 2 ? bass : gain;
        adapter->beginEdit(index);
        for (int k = 1; k <= 5; ++k) adapter->performEdit(index, 0.001f * g + 0.01f * k);
        adapter->endEdit(index);
        // A hand is slower than the blocks: the next gesture waits for a block to start.
        const int seen = blocks.load();
        while (blocks.load() < seen + 2) std::this_thread::yield();
    }
    stop = true;
    audio.join();
    std::vector<float> x(64, 0.1f), l, r;
    p.render(x, x, l, r, 64);  // what was still queued
    // Every gesture arrived whole and in order: begin, its values, end; the last values are the effect's.
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();
    int begins = 0, ends = 0;
    double lastGain = -1, lastBass = -1;
    for (const ClapOutEvent& e : p.sent) {
        begins += e.type == kEventParamGestureBegin;
        ends += e.type == kEventParamGestureEnd;
        if (e.type == kEventParamValue) (e.id == static_cast<clap_id>(gain) ? lastGain : lastBass) = e.value;
    }
    EXPECT_EQ(200, begins);
    EXPECT_EQ(200, ends);
    EXPECT_EQ(p.value(gain), lastGain);
    EXPECT_EQ(p.value(bass), lastBass);
    EXPECT_FLOAT_EQ(0.001f * 198 + 0.05f, static_cast<float>(lastGain));
}
