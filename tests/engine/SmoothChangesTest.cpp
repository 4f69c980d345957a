// Changes made while a system plays, with the Driver's smooth changes on: a switch's new
// arrangement runs beside the old one for the pre-roll and comes in with a raised-cosine
// crossfade, a graph that a control turns on comes in settled, a knob glides.
#include <cmath>

#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const float kRate = 48000;
const size_t kBlock = 64;
const size_t kPreroll = static_cast<size_t>(std::lround(Driver::kPrerollSeconds * kRate));
const size_t kFade = static_cast<size_t>(std::lround(Driver::kFadeSeconds * kRate));

std::string gain(const std::string& name, const std::string& g, const std::string& from) {
    std::string src = from == "Graph" ? "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/>"
                                      : "<Input Port=\"in\" Element=\"" + from + "\" Output=\"out\"/>";
    return "<Element Type=\"Gain\" Name=\"" + name + "\"><Properties Gain=\"" + g + "\"/><Inputs>" + src +
           "</Inputs></Element>";
}

std::string graph(const std::string& name, const std::string& from, const std::string& elements, const std::string& out) {
    return "<Graph Name=\"" + name + "\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"" +
           from + "\" Node=\"" + (from == "System" ? "0" : "out") + "\"/></Inputs>" + elements +
           "<Output><Node Name=\"out\" Element=\"" + out + "\" Index=\"0\"/></Output></Graph>";
}

std::string control(const std::string& name, const std::string& value, const std::string& properties) {
    return "<Control Name=\"" + name + "\" DisplayName=\"" + name + "\" Value=\"" + value + "\"><Properties>" +
           properties + "</Properties></Control>";
}

// Runs `blocks` blocks of a constant input; returns output `o`.
std::vector<float> play(Driver& d, size_t blocks, float x = 1.0f, int o = 0) {
    std::vector<float> in(kBlock, x), y;
    for (size_t b = 0; b < blocks; ++b) {
        d.process({in.data()}, kBlock);
        y.insert(y.end(), d.getResults()[o], d.getResults()[o] + kBlock);
    }
    return y;
}

double raisedCosine(size_t frame) {
    const double x = (frame + 0.5 - static_cast<double>(kPreroll)) / kFade;
    return x <= 0 ? 0.0 : x >= 1 ? 1.0 : 0.5 - 0.5 * std::cos(M_PI * x);
}

std::shared_ptr<Driver> smoothDriver(const std::string& doc) {
    auto d = makeDriver(doc, kRate, static_cast<int>(kBlock));
    d->setSmoothChanges(true);
    return d;
}

} // namespace

TEST(EngineSmoothChanges, ASwitchAndTheBypassesAroundAGraphCrossfadeAfterThePreroll) {
    // Pick chooses x2 or x(-1) (a switch's position), then Mid (x3, untouched) between Pre
    // (x5) and Post (x7), both bypassed by one control: Mid runs in both arrangements, each
    // with its own input, and only what leaves the change is crossfaded.
    std::string pick = gain("Two", "2", "Graph") + gain("Minus", "-1", "Graph") +
                       "<Element Type=\"Switch\" Name=\"S\"><Properties NumberOfInputs=\"2\" Position=\"0\"/><Inputs>"
                       "<Input Port=\"in_0\" Element=\"Two\" Output=\"out\"/><Input Port=\"in_1\" Element=\"Minus\" "
                       "Output=\"out\"/></Inputs></Element>";
    std::string doc = systemDoc(
        graph("Pick", "System", pick, "S") + graph("Pre", "Pick", gain("g", "5", "Graph"), "g") +
            graph("Mid", "Pre", gain("g", "3", "Graph"), "g") + graph("Post", "Mid", gain("g", "7", "Graph"), "g"),
        "<Output Graph=\"Post\" Node=\"out\"/>",
        control("Select", "0", "<Property Name=\"Position\" Graph=\"Pick\" Element=\"S\"/>") +
            control("Around", "0", "<Property Name=\"Bypass\" Graph=\"Pre\"/><Property Name=\"Bypass\" Graph=\"Post\"/>"));
    auto d = smoothDriver(doc);
    EXPECT_FLOAT_EQ(210, play(*d, 2).back());  // the first values take effect at once
    auto expectCrossfade = [&](double from, double to, const char* what) {
        const auto y = play(*d, (kPreroll + kFade) / kBlock + 2);
        for (size_t i = 0; i < y.size(); ++i)
            ASSERT_NEAR(from + raisedCosine(i) * (to - from), y[i], 1e-4 * std::fabs(from - to)) << what << ", frame " << i;
        EXPECT_FALSE(d->isChanging()) << what;
    };
    d->findControl("Select")->setValue(1);
    expectCrossfade(210, -105, "switch");
    d->findControl("Around")->setValue(1);
    expectCrossfade(-105, -3, "bypasses");
    EXPECT_TRUE(d->getGraph("Pre").isBypassed());
    EXPECT_TRUE(d->getGraph("Post").isBypassed());
    // Both at once: one change.
    d->findControl("Select")->setValue(0);
    d->findControl("Around")->setValue(0);
    expectCrossfade(-3, 210, "both");
    // A change that arrives while another is under way waits for it.
    d->findControl("Select")->setValue(1);
    play(*d, 1);
    EXPECT_TRUE(d->isChanging());
    d->findControl("Around")->setValue(1);
    const auto y = play(*d, (kPreroll + kFade + kBlock - 1) / kBlock - 1);
    EXPECT_FALSE(d->isChanging());
    EXPECT_NEAR(-105, y.back(), 1e-3);
    expectCrossfade(-105, -3, "the change that waited");
}

TEST(EngineSmoothChanges, AGraphTurnedOnComesInSettled) {
    // Slow: a lowpass of unity gain at DC and a time constant of 1000 frames, switched off at
    // first. Warmed up on a constant 1 it settles at 1 although off, so that turning it on
    // fades its output in at 1 from the start; it has not run since, and still has not moved.
    std::string doc = systemDoc(
        graph("Slow", "System",
              "<Element Type=\"FirstOrderIIR\" Name=\"lp\"><Properties A=\"-0.999\" B=\"0.001|0.0\"/><Inputs>"
              "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>",
              "lp"),
        "<Output Graph=\"Slow\" Node=\"out\"/>", control("Mute", "1", "<Property Name=\"Off\" Graph=\"Slow\"/>"));
    auto d = smoothDriver(doc);
    d->setWarming(true);
    EXPECT_NEAR(1.0, play(*d, 200).back(), 1e-4);  // on while warming up
    d->setWarming(false);
    EXPECT_EQ(0.0f, play(*d, 10).back());
    d->findControl("Mute")->setValue(0);
    const auto y = play(*d, (kPreroll + kFade) / kBlock + 2);
    for (size_t i = 0; i < y.size(); ++i) ASSERT_NEAR(raisedCosine(i), y[i], 1e-3) << i;
    // Cold, the same lowpass would have come in at 1 - exp(-(pre-roll + fade) / 1000) = 0.70.
    auto cold = smoothDriver(doc);
    play(*cold, 10);
    cold->findControl("Mute")->setValue(0);
    EXPECT_NEAR(1 - std::exp(-static_cast<double>(y.size()) / 1000), play(*cold, y.size() / kBlock).back(), 0.02);
    // Turned off, it fades out.
    d->findControl("Mute")->setValue(1);
    const auto z = play(*d, (kPreroll + kFade) / kBlock + 2);
    for (size_t i = 0; i < z.size(); ++i) ASSERT_NEAR(1 - raisedCosine(i), z[i], 1e-3) << i;
}

TEST(EngineSmoothChanges, ARateChangeRunsBothRatesAndCrossfadesAtTheOutput) {
    // The oversampling example, its factor moved while a sine plays: no step in the output
    // beyond the sine's own, and the graphs in the middle at the new rate afterwards.
    auto d = smoothDriver(readText(sourcePath("examples/oversampling.xml")));
    auto control = d->findControl("Oversampling");
    std::vector<float> x(kBlock);
    size_t n = 0;
    auto run = [&](size_t blocks, double& largestStep, float& last) {
        for (size_t b = 0; b < blocks; ++b) {
            for (float& v : x) v = 0.5f * static_cast<float>(std::sin(2 * M_PI * 500 * (n++) / kRate));
            d->process({x.data()}, kBlock);
            for (size_t i = 0; i < kBlock; ++i) {
                const float y = d->getResults()[0][i];
                largestStep = std::max(largestStep, static_cast<double>(std::fabs(y - last)));
                last = y;
            }
        }
    };
    double own = 0, flipping = 0;
    float last = 0;
    run(100, own, last);
    own = 0;
    run(50, own, last);
    for (int factor : {1, 2, 4, 1}) {
        control->setValue(static_cast<float>(factor));
        run((kPreroll + kFade) / kBlock + 3, flipping, last);
        EXPECT_DOUBLE_EQ(factor, d->getGraph("Shaper").getInputMultiplier());
        EXPECT_FLOAT_EQ(kRate * factor, d->getGraph("Shaper").getContext()->getSampleRate());
    }
    std::printf("largest step: %.4f steady, %.4f across the changes of rate\n", own, flipping);
    EXPECT_LT(flipping, own * 1.05);
    // Without smooth changes the factor takes effect at once, with a jump.
    d->setSmoothChanges(false);
    double hard = 0;
    control->setValue(4);
    run(4, hard, last);
    EXPECT_GT(hard, own * 1.2);
}

TEST(EngineSmoothChanges, AKnobGlides) {
    std::string doc = systemDoc(graph("A", "System", gain("g", "2", "Graph"), "g"), "<Output Graph=\"A\" Node=\"out\"/>",
                                control("Level", "2", "<Property Name=\"Gain\" Graph=\"A\" Element=\"g\"/>"));
    auto d = smoothDriver(doc);
    EXPECT_FLOAT_EQ(2, play(*d, 1).back());
    d->findControl("Level")->setValue(4);
    const size_t glide = static_cast<size_t>(std::lround(Driver::kGlideSeconds * kRate));
    const auto y = play(*d, glide / kBlock + 2);
    // Steps of kGlideStep frames, each a step's share of the way further, up to 4.
    for (size_t i = 0; i < y.size(); ++i) {
        const size_t done = std::min(glide, (i / Driver::kGlideStep + 1) * Driver::kGlideStep);
        ASSERT_NEAR(2 + 2.0 * done / glide, y[i], 1e-4) << i;
    }
    EXPECT_FALSE(d->isChanging());  // a glide is no change of structure
}
