// Graph order between graphs, rates, control delivery and suspend.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "circuit/Circuit.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

std::string gainGraph(const std::string& name, const std::string& inputs, const std::string& extra = "",
                      int numberOfInputs = 1) {
    return "<Graph Name=\"" + name + "\" Type=\"DSP\"" + extra + "><NumberOfInputs>" + std::to_string(numberOfInputs) +
           "</NumberOfInputs><Inputs>" + inputs +
           "</Inputs><Element Type=\"Gain\" Name=\"g\"><Properties Gain=\"2\"/><Inputs>"
           "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
           "<Output><Node Name=\"out\" Element=\"g\" Port=\"out\"/></Output></Graph>";
}

const std::string kFromSystem = "<Input Graph=\"System\" Node=\"0\"/>";

} // namespace

TEST(EngineDriver, GraphsRunInDataFlowOrderAndOutputsMayNameTheSystem) {
    // "Second" is defined first and reads "First", defined later.
    std::string doc = systemDoc(gainGraph("Second", "<Input Graph=\"First\" Node=\"out\"/>") +
                                    gainGraph("First", kFromSystem),
                                "<Output Graph=\"Second\" Node=\"out\"/><Output Graph=\"System\" Node=\"0\"/>");
    auto d = makeDriver(doc);
    EXPECT_EQ((std::vector<int>{1, 0}), d->getOrder());
    std::vector<float> x = {1, 2, 3};
    d->process({x.data()}, 3);
    EXPECT_FLOAT_EQ(12, d->getResults()[0][2]);
    EXPECT_EQ(x.data(), d->getResults()[1]);  // the system input's pointer unchanged
    std::string cycle = systemDoc(gainGraph("A", "<Input Graph=\"B\" Node=\"out\"/>") +
                                      gainGraph("B", "<Input Graph=\"A\" Node=\"out\"/>"),
                                  "<Output Graph=\"A\" Node=\"out\"/>");
    EXPECT_EQ("Graphs do not form a DAG.", messageOf([&] { makeDriver(cycle); }));
}

TEST(EngineDriver, MultipliersFollowTheChainAndMustReturnToOne) {
    std::string up = gainGraph("Up", kFromSystem, " Multiplier=\"4.0\"");
    std::string mid = gainGraph("Mid", "<Input Graph=\"Up\" Node=\"out\"/>");
    std::string down = gainGraph("Down", "<Input Graph=\"Mid\" Node=\"out\"/>", " Multiplier=\"0.25\"");
    auto d = makeDriver(systemDoc(up + mid + down, "<Output Graph=\"Down\" Node=\"out\"/>"), 48000, 10);
    EXPECT_DOUBLE_EQ(4.0, d->getGraph("Mid").getInputMultiplier());
    EXPECT_DOUBLE_EQ(4.0, d->getGraph("Down").getInputMultiplier());
    EXPECT_EQ(40, d->getGraph("Mid").getMaxBlockSize());  // floor(10 * 4 + 0.5)

    EXPECT_EQ("Invalid multiplier. Expected 1 but got 4",
              messageOf([&] { makeDriver(systemDoc(up + mid, "<Output Graph=\"Mid\" Node=\"out\"/>")); }));
    std::string two = gainGraph("Two", "<Input Graph=\"System\" Node=\"0\"/><Input Graph=\"Up\" Node=\"out\"/>", "", 2);
    EXPECT_EQ("Invalid input multipliers for graphTwo",
              messageOf([&] { makeDriver(systemDoc(up + two, "<Output Graph=\"System\" Node=\"0\"/>")); }));
    // Rates that differ by 1e-11 are the same rate.
    std::string nearly = gainGraph("Nearly", kFromSystem, " Multiplier=\"1.00000000001\"");
    std::string joint =
        gainGraph("Joint", "<Input Graph=\"System\" Node=\"0\"/><Input Graph=\"Nearly\" Node=\"out\"/>", "", 2);
    EXPECT_NO_THROW(makeDriver(systemDoc(nearly + joint, "<Output Graph=\"System\" Node=\"0\"/>")));
    EXPECT_EQ("Invalid Graph Multiplier. Graph: Up Multiplier: 0",
              messageOf([&] { makeDriver(systemDoc(gainGraph("Up", kFromSystem, " Multiplier=\"0\""), "")); }));
}

TEST(EngineDriver, BypassingARateChangerMovesTheRatesAtTheNextBlock) {
    std::string controls =
        "<Control Name=\"Bup\" DisplayName=\"Bup\" Value=\"0\"><Properties><Property Name=\"Bypass\" Graph=\"Up\"/>"
        "</Properties></Control>"
        "<Control Name=\"Bdown\" DisplayName=\"Bdown\" Value=\"0\"><Properties><Property Name=\"Bypass\" "
        "Graph=\"Down\"/></Properties></Control>";
    std::string doc =
        systemDoc(gainGraph("Up", kFromSystem, " Multiplier=\"4.0\"") +
                      gainGraph("Down", "<Input Graph=\"Up\" Node=\"out\"/>", " Multiplier=\"0.25\""),
                  "<Output Graph=\"Down\" Node=\"out\"/>", controls);
    auto d = makeDriver(doc, 48000, 4);
    std::vector<float> x(4, 1.0f);
    d->findControl("Bup")->setValue(1);
    d->findControl("Bdown")->setValue(1);
    d->process({x.data()}, 4);
    EXPECT_DOUBLE_EQ(1.0, d->getGraph("Down").getInputMultiplier());
    d->findControl("Bdown")->setValue(0);  // Up bypassed alone: Down's output runs at 0.25
    EXPECT_EQ("Invalid multiplier. Expected 1 but got 0.25", messageOf([&] { d->process({x.data()}, 4); }));
}

TEST(EngineDriver, OnlyTheLatestControlValueIsDeliveredAndABusyControlWaits) {
    std::string controls =
        "<Control Name=\"Level\" DisplayName=\"Level\" Value=\"2\"><Properties>"
        "<Property Name=\"Gain\" Graph=\"A\" Element=\"g\"/></Properties></Control>";
    auto d = makeDriver(systemDoc(gainGraph("A", kFromSystem), "<Output Graph=\"A\" Node=\"out\"/>", controls));
    std::vector<float> x = {1};
    auto level = d->findControl("Level");
    level->setValue(5);
    level->setValue(7);
    d->process({x.data()}, 1);
    EXPECT_FLOAT_EQ(7, d->getResults()[0][0]);
    level->setValue(3);
    ASSERT_TRUE(level->tryLock());  // a writer holds the flag: the block goes on with the old value
    d->process({x.data()}, 1);
    EXPECT_FLOAT_EQ(7, d->getResults()[0][0]);
    level->unlock();
    d->process({x.data()}, 1);
    EXPECT_FLOAT_EQ(3, d->getResults()[0][0]);
    EXPECT_FALSE(level->isChanged());
}

TEST(EngineDriver, StatesAndSuspend) {
    std::string doc = systemDoc(gainGraph("A", kFromSystem), "<Output Graph=\"A\" Node=\"out\"/>");
    Driver fresh;
    std::vector<float> x = {1};
    EXPECT_EQ("Cannot process. Driver is not initialized.", messageOf([&] { fresh.process({x.data()}, 1); }));
    fresh.init(doc);
    EXPECT_EQ("Driver: Cannot process. maxBlockSize is not set.", messageOf([&] { fresh.process({x.data()}, 1); }));
    EXPECT_EQ("Driver: maxBlockSize must be greater than zero. maxBlockSize=0",
              messageOf([&] { fresh.setMaxBlockSize(0); }));
    fresh.setMaxBlockSize(1);
    fresh.process({x.data()}, 1);
    fresh.suspend(true);
    EXPECT_EQ("Driver: Cannot process. Driver is in the suspend state.",
              messageOf([&] { fresh.process({x.data()}, 1); }));
    fresh.suspend(false);
    EXPECT_NO_THROW(fresh.process({x.data()}, 1));
    EXPECT_EQ("Nope is not a valid graph name.", messageOf([&] { fresh.getGraph("Nope"); }));
}

TEST(EngineDriver, SuspendWaitsForARunningBlock) {
    std::string doc = systemDoc(gainGraph("A", kFromSystem), "<Output Graph=\"A\" Node=\"out\"/>");
    auto d = makeDriver(doc, 48000, 4096);
    std::vector<float> x(4096, 1.0f);
    d->process({x.data()}, 4096);  // the graph's output buffer exists from the first block
    const float* out = d->getGraph("A").getResult(0);
    std::atomic<bool> stop{false};
    std::atomic<int> refused{0};
    // Every block carries a new value, so that a block that ran on after suspend returned
    // would show in the output.
    std::thread audio([&] {
        for (float value = 1.0f; !stop; value += 1.0f) {
            std::fill(x.begin(), x.end(), value);
            try {
                d->process({x.data()}, 4096);
            } catch (const KELMException&) {
                ++refused;
            }
        }
    });
    for (int i = 0; i < 50; ++i) {
        d->suspend(true);
        // suspend returns only between blocks: the last block's output stays as it is while
        // the audio thread is refused twice more. (A call that read the state just before
        // the suspend may still take the flag for a moment to refuse.)
        const float last = out[4095];
        const int before = refused.load();
        const auto give = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (refused.load() < before + 2 && std::chrono::steady_clock::now() < give) std::this_thread::yield();
        ASSERT_GE(refused.load(), before + 2);
        EXPECT_EQ(last, out[4095]);
        EXPECT_FALSE(d->isProcessing());
        d->suspend(false);
    }
    stop = true;
    audio.join();
    EXPECT_FALSE(d->isProcessing());
}

TEST(EngineDriver, PropertyResolution) {
    auto ctl = [](const std::string& props) {
        return "<Control Name=\"C\" DisplayName=\"C\" Value=\"0\"><Properties>" + props + "</Properties></Control>";
    };
    std::string g = gainGraph("A", kFromSystem);
    std::string out = "<Output Graph=\"A\" Node=\"out\"/>";
    EXPECT_EQ("Invalid Property: Invalid graph name Z. Property, name=Gain",
              messageOf([&] { makeDriver(systemDoc(g, out, ctl("<Property Name=\"Gain\" Graph=\"Z\"/>"))); }));
    EXPECT_EQ("Invalid Property: Invalid element name q. Property, name=Gain",
              messageOf([&] {
                  makeDriver(systemDoc(g, out, ctl("<Property Name=\"Gain\" Graph=\"A\" Element=\"q\"/>")));
              }));
    EXPECT_EQ("Driver: Multiple definitions of the same property. Property name: Gain graph: A element: g",
              messageOf([&] {
                  makeDriver(systemDoc(g, out,
                                       ctl("<Property Name=\"Gain\" Graph=\"A\" Element=\"g\"/>") +
                                           ctl("<Property Name=\"Gain\" Graph=\"A\" Element=\"g\"/>")));
              }));
}

TEST(EngineDriver, SuspendReturnsPromptlyAfterABlockThatFailed) {
    // The pentode refuses a NaN from inside the block, after the driver has taken its
    // processing flag; the next suspend must not wait for a block that is long gone.
    auto d = makeDriver(readText(sourcePath("examples/pentode-stage.xml")), 96000, 64);
    dynamic_cast<Circuit&>(d->getGraph("PowerStage")).setKernelsAllowed(false);
    std::vector<float> bad(64, std::nanf("")), good(64, 0.0f);
    EXPECT_NE("", messageOf([&] { d->process({bad.data()}, 64); }));
    EXPECT_FALSE(d->isProcessing());
    auto returned = std::make_shared<std::atomic<bool>>(false);
    std::thread host([d, returned] {
        d->suspend(true);
        *returned = true;
    });
    for (int i = 0; i < 500 && !*returned; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (!*returned) {
        ADD_FAILURE() << "suspend still waits 5 s after the failed block";
        host.detach();  // it would spin for ever; the process ends anyway
        return;
    }
    host.join();
    EXPECT_EQ("Driver: Cannot process. Driver is in the suspend state.", messageOf([&] { d->process({good.data()}, 64); }));
    d->suspend(false);
    // Runs again (the NaN stays in the circuit's state, and the pentode says so, from inside the block).
    EXPECT_EQ(0u, messageOf([&] { d->process({good.data()}, 64); }).find("Pentode: "));
    EXPECT_FALSE(d->isProcessing());
}
