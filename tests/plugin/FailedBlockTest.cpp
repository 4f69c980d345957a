// A block in which something throws: silence from its first frame to its last, whatever the
// exception, and the blocks after it run on. And the VST 2 shell asks the host about its
// second input when the host changes the pins, never per block.
#include <atomic>
#include <cmath>
#include <stdexcept>

#include "dsp/DspTypes.h"
#include "dsp/Gain.h"
#include "engine/KELMException.h"
#include "plugin/core/BuiltInData.h"
#include "plugin/core/KelmEffect.h"
#include "tests/plugin/Vst2Plugin.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// The preamp's output level with a fault on call: the process call that brings the countdown
// to zero throws, an engine exception or another kind.
std::atomic<int> countdown{-1};
std::atomic<bool> engineKind{false};

class FaultyGain : public Gain {
public:
    void process(const scalar* in, scalar* out, size_t n) override {
        if (countdown.load() >= 0 && countdown.fetch_sub(1) == 0) {
            if (engineKind.load()) throw KELMException("FaultyGain: a fault on call");
            throw std::out_of_range("FaultyGain: a fault on call");
        }
        Gain::process(in, out, n);
    }
    using Gain::process;
};

// The built-in document with the left channel's output level made faulty.
std::string faultyDocument() {
    registerDspTypes();
    filterTypes().add("FaultyGain", [] { return static_cast<Filter*>(new FaultyGain()); });
    std::string doc = BuiltInData::document();
    const std::string graph = "<Graph Name=\"DC block\"", element = "<Element Type=\"Gain\" Name=\"Gain\">";
    const size_t at = doc.find(element, doc.find(graph));
    doc.replace(at, element.size(), "<Element Type=\"FaultyGain\" Name=\"Gain\">");
    return doc;
}

struct Effect {
    KelmEffect fx;
    std::vector<float> l, r, ol, orr;
    explicit Effect(const std::string& doc) : fx(doc) {
        fx.getDriver().setTwinning(false);  // the left channel's graphs run by themselves
        fx.setSampleRate(48000);
        fx.setBlockSize(64);
        fx.resume();
    }
    // One block of 256 frames (four chunks of the announced 64) of a 220 Hz sine from frame `at`.
    void block(size_t at) {
        l.resize(256);
        for (size_t i = 0; i < 256; ++i) l[i] = 0.3f * static_cast<float>(std::sin(2 * M_PI * 220 * (at + i) / 48000));
        r = l;
        ol.assign(256, 1.0f);
        orr.assign(256, 1.0f);
        float* in[2] = {l.data(), r.data()};
        float* out[2] = {ol.data(), orr.data()};
        fx.process(in, out, 256);
    }
};

double peak(const std::vector<float>& y) {
    double p = 0;
    for (float v : y) p = std::max(p, std::fabs(static_cast<double>(v)));
    return p;
}

double rms(const std::vector<float>& y) {
    double s = 0;
    for (float v : y) s += static_cast<double>(v) * v;
    return std::sqrt(s / y.size());
}

} // namespace

TEST(PluginFailedBlock, AnyExceptionSilencesTheWholeBlockAndTheNextBlocksRunOn) {
    const std::string doc = faultyDocument();
    for (bool engine : {false, true}) {
        countdown = -1;
        Effect reference(doc), faulty(doc);
        size_t at = 0;
        for (int b = 0; b < 20; ++b, at += 256) {
            reference.block(at);
            faulty.block(at);
        }
        // The third chunk of the next block fails, after two chunks have written their output.
        engineKind = engine;
        countdown = 2;
        bool passed = false;
        try {
            faulty.block(at);
        } catch (const KELMException& e) {
            passed = true;
            EXPECT_NE(std::string::npos, e.message().find("FaultyGain")) << e.message();
        }
        reference.block(at);
        at += 256;
        EXPECT_EQ(engine, passed) << "the engine's exceptions pass on, others end in the effect";
        EXPECT_EQ(-1, countdown.load());
        for (size_t i = 0; i < 256; ++i) {
            ASSERT_EQ(0.0f, faulty.ol[i]) << "frame " << i << (engine ? ", engine exception" : ", other exception");
            ASSERT_EQ(0.0f, faulty.orr[i]) << "frame " << i << (engine ? ", engine exception" : ", other exception");
        }
        // The next block plays, the graphs where the failed chunk stopped resuming with a gap of
        // a chunk and a half; within 0.2 s the gap has left no trace.
        faulty.block(at);
        reference.block(at);
        for (auto channel : {std::make_pair(&faulty.ol, &reference.ol), std::make_pair(&faulty.orr, &reference.orr)}) {
            EXPECT_NEAR(1.0, rms(*channel.first) / rms(*channel.second), 0.1);
            EXPECT_LT(peak(*channel.first), 1.25 * peak(*channel.second));
        }
        for (int b = 0; b < 40; ++b) {
            at += 256;
            faulty.block(at);
            reference.block(at);
        }
        double worst = 0;
        for (size_t i = 0; i < 256; ++i) worst = std::max(worst, std::fabs(double(faulty.ol[i]) - reference.ol[i]));
        EXPECT_LT(worst, 0.01 * rms(reference.ol)) << "0.2 s after the fault";
    }
}

namespace {
std::atomic<int> pinQuestions{0};
std::atomic<int> pinReply{0};
vst2::VstIntPtr KELM_VSTCALLBACK countingHost(vst2::AEffect*, vst2::VstInt32 opcode, vst2::VstInt32, vst2::VstIntPtr,
                                              void*, float) {
    if (opcode == vst2::audioMasterVersion) return 2400;
    if (opcode == vst2::audioMasterPinConnected) {
        ++pinQuestions;
        return pinReply.load();
    }
    return 0;
}
} // namespace

TEST(PluginFailedBlock, TheSecondInputIsAskedAboutWhenThePinsChangeNotPerBlock) {
    using namespace kelm::test::vst2host;
    pinReply = 1;  // not connected
    Plugin p(countingHost);
    p.start(48000, 64);
    EXPECT_EQ(1, pinQuestions.load()) << "asked at resume";
    std::vector<float> l(64, 0.0f), r(64), ol(64), orr(64);
    for (int i = 0; i < 64; ++i) r[i] = 0.5f * std::sin(0.2f * i);
    float* in[2] = {l.data(), r.data()};
    float* out[2] = {ol.data(), orr.data()};
    auto rightLevel = [&] {
        double s = 0;
        for (int b = 0; b < 20; ++b) {
            p.e->processReplacing(p.e, in, out, 64);
            s += rms(orr);
        }
        return s;
    };
    EXPECT_LT(rightLevel(), 1e-3) << "an unconnected second input is not read";
    EXPECT_EQ(1, pinQuestions.load()) << "no question from the blocks";
    p.call(effConnectInput, 1, 1);  // the host connects it and says so
    const double connected = rightLevel();
    EXPECT_GT(connected, 1.0);
    pinReply = 1;
    p.call(effSetSpeakerArrangement);  // the host's other way of changing pins: asked again
    EXPECT_EQ(2, pinQuestions.load());
    for (int b = 0; b < 10; ++b) rightLevel();  // the right channel's tail dies away
    EXPECT_LT(rightLevel(), 0.01 * connected) << "disconnected again";
    p.call(effMainsChanged, 0, 0);
    pinReply = 0;
    p.call(effMainsChanged, 0, 1);
    EXPECT_EQ(3, pinQuestions.load());
    EXPECT_GT(rightLevel(), 1.0);
    EXPECT_EQ(3, pinQuestions.load());
}
