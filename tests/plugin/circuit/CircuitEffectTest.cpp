// Kelm Circuit's effect core: what it plays against the engine's own render, its parameters,
// channels, levels and oversampling, its state, and the documents it refuses.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "dsp/IirDecimator.h"
#include "dsp/IirInterpolator.h"
#include "plugin/core/BuiltInExamples.h"
#include "plugin/core/CircuitDocument.h"
#include "plugin/core/CircuitState.h"
#include "plugin/core/DocumentError.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

using namespace kelm;
using namespace kelm::test;
using namespace kelm::test::circuit;

namespace {

const double kRate = 48000;
const int kBlock = 512;

std::string example(const char* name) { return readText(sourcePath(std::string("examples/") + name)); }

DocumentError::Kind kindOf(const std::string& text, const std::string& name) {
    try {
        CircuitDocument d(text, name, CircuitDocument::Settings());
    } catch (const DocumentError& e) {
        return e.kind();
    }
    ADD_FAILURE() << name << " was accepted";
    return DocumentError::Build;
}

// A description of one resistor divider repeated n times (n elements each).
std::string ladder(int n) {
    auto resistor = [](const std::string& name, const std::string& a, const std::string& b) {
        return "<Element Type=\"Resistor\" Name=\"" + name + "\"><Properties Resistance=\"1000\"/><Node Name=\"" + a +
               "\"/><Node Name=\"" + b + "\"/></Element>";
    };
    std::string elements = element("VoltageInputSource", "in", "InputNumber=\"0\"", {"n0", "GND"});
    for (int i = 0; i < n; ++i) elements += resistor("R" + std::to_string(i), "n" + std::to_string(i), "n" + std::to_string(i + 1));
    elements += resistor("Rend", "n" + std::to_string(n), "GND");
    return systemDoc("<Graph Name=\"L\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" "
                     "Node=\"0\"/></Inputs>" +
                         elements + "<Output><Node Name=\"n1\"/></Output></Graph>",
                     "<Output Graph=\"L\" Node=\"n1\"/>");
}

} // namespace

// At the defaults the effect gives what the engine gives for the same document, channel by
// channel: a one-input document runs once per side, a netlist is imported for the rate.
TEST(KelmCircuitEffect, PlaysAsTheEngineRendersAtTheDefaults) {
    const auto in = testSignal(24000, kRate);
    struct Case {
        const char* file;
        std::string text;
        double tolerance;
    };
    const std::vector<Case> cases = {
        {"triode-stage.xml", example("triode-stage.xml"), 1e-6},
        {"baxandall.xml", example("baxandall.xml"), 1e-6},
        {"tonestack.cir", readText(sourcePath("tests/data/netlist/tonestack.cir")), 1e-6},
        {"fuzz-face.xml", example("fuzz-face.xml"), 1e-5},
    };
    for (const Case& c : cases) {
        CircuitEffect e;
        startWith(e, c.text);
        const auto got = effectRender(e, in, kBlock);
        const auto left = engineRender(c.text, c.file, {in[0], in[0]}, kRate, kBlock);
        const auto right = engineRender(c.text, c.file, {in[1], in[1]}, kRate, kBlock);
        EXPECT_LE(relativeDifference(got[0], left[0]), c.tolerance) << c.file;
        EXPECT_LE(relativeDifference(got[1], right[0]), c.tolerance) << c.file;
        EXPECT_GT(peak(left[0]), 0.0f) << c.file;
    }
}

TEST(KelmCircuitEffect, ParametersAreTheDocumentsControlsThenTheFixedOnes) {
    CircuitEffect e;
    startWith(e, example("baxandall.xml"));
    auto names = [&e] {
        std::vector<std::string> n;
        for (int i = 0; i < e.numberOfParameters(); ++i) n.push_back(e.parameterName(i));
        return n;
    };
    std::vector<std::string> expected(CircuitEffect::kSlots, "-");
    expected[0] = "Bass";
    expected[1] = "Treble";
    expected.insert(expected.end(), {"Input level", "Output level", "Oversampling", "Mix"});
    EXPECT_EQ(expected, names());
    EXPECT_FLOAT_EQ(0.5f, e.getParameter(0));  // the document's own value
    EXPECT_EQ("0.50", e.parameterDisplay(0));
    EXPECT_EQ("", e.parameterDisplay(5));
    EXPECT_FLOAT_EQ(0.5f, e.getParameter(CircuitEffect::kInputLevel));
    EXPECT_EQ("+0.0", e.parameterDisplay(CircuitEffect::kInputLevel));
    EXPECT_EQ("dB", e.parameterLabel(CircuitEffect::kOutputLevel));
    EXPECT_EQ("1x", e.parameterDisplay(CircuitEffect::kOversampling));
    EXPECT_EQ("100", e.parameterDisplay(CircuitEffect::kMix));
    EXPECT_EQ(4, e.parameterPositions(CircuitEffect::kOversampling));
    EXPECT_EQ(0, e.parameterPositions(0));

    // Values a host may send: clamped, NaN to 0, the oversampling on its four positions.
    e.setParameter(0, 1.7f);
    EXPECT_FLOAT_EQ(1.0f, e.getParameter(0));
    e.setParameter(0, std::nanf(""));
    EXPECT_FLOAT_EQ(0.0f, e.getParameter(0));
    e.setParameter(CircuitEffect::kOversampling, 0.4f);
    EXPECT_FLOAT_EQ(1.0f / 3.0f, e.getParameter(CircuitEffect::kOversampling));
    EXPECT_EQ("2x", e.parameterDisplay(CircuitEffect::kOversampling));
    e.setParameter(CircuitEffect::kOversampling, 0.9f);
    EXPECT_EQ("8x", e.parameterDisplay(CircuitEffect::kOversampling));
    e.setParameter(CircuitEffect::kInputLevel, 0.0f);
    EXPECT_EQ("-40.0", e.parameterDisplay(CircuitEffect::kInputLevel));
    e.setParameter(-1, 0.5f);  // nothing happens
    e.setParameter(20, 0.5f);
    EXPECT_FLOAT_EQ(0.0f, e.getParameter(20));

    // Another document: the names follow, and the hosts are told through the serial.
    const uint32_t serial = e.namesSerial();
    const std::string demo = example("dsp-demo.xml");
    ASSERT_TRUE(e.setState(demo.data(), demo.size()));
    EXPECT_NE(serial, e.namesSerial());
    expected[0] = "Bypass";
    expected[1] = "Mute";
    expected[2] = "Select";
    EXPECT_EQ(expected, names());
}

// The input level sets how many volts full scale is on the way in, the output level on the
// way out, the mix blends the dry input back. The tone stack is linear: its output follows
// exactly.
TEST(KelmCircuitEffect, LevelsAndMixScaleAsTheySay) {
    const auto in = testSignal(9600, kRate);
    const std::string doc = example("baxandall.xml");
    auto render = [&](float input, float output, float mix) {
        CircuitEffect e;
        e.setParameter(CircuitEffect::kInputLevel, input);
        e.setParameter(CircuitEffect::kOutputLevel, output);
        e.setParameter(CircuitEffect::kMix, mix);
        startWith(e, doc);
        return effectRender(e, in, kBlock);
    };
    const auto plain = render(0.5f, 0.5f, 1.0f);
    const float plus6 = 0.5f + 6.0f / 80.0f;  // +6 dB on the parameter's -40 to +40 dB scale
    const auto louder = render(plus6, 0.5f, 1.0f);
    const auto quieter = render(0.5f, plus6, 1.0f);
    const auto both = render(plus6, plus6, 1.0f);
    const auto dry = render(0.5f, 0.5f, 0.0f);
    const double gain = std::pow(10.0, 6.0 / 20.0);
    for (int c = 0; c < 2; ++c) {
        std::vector<float> scaledUp(plain[c]), scaledDown(plain[c]);
        for (auto& v : scaledUp) v = static_cast<float>(v * gain);
        for (auto& v : scaledDown) v = static_cast<float>(v / gain);
        EXPECT_LE(relativeDifference(louder[c], scaledUp), 1e-5) << c;
        EXPECT_LE(relativeDifference(quieter[c], scaledDown), 1e-5) << c;
        EXPECT_LE(relativeDifference(both[c], plain[c]), 1e-5) << c;
        EXPECT_EQ(in[c], dry[c]) << c;
    }
}

// One input and one output: the document runs once per side with linked controls, and a
// mono input feeds both. Two inputs and two outputs: it runs once, as written.
TEST(KelmCircuitEffect, ChannelsFollowTheDocument) {
    const auto in = testSignal(9600, kRate);
    {
        CircuitEffect e;
        startWith(e, example("baxandall.xml"));
        e.setParameter(0, 0.9f);  // Bass, on both sides
        const auto stereo = effectRender(e, in, 256);
        CircuitEffect mono;
        startWith(mono, example("baxandall.xml"));
        mono.setParameter(0, 0.9f);
        const auto fromMono = effectRender(mono, in, 256, false);
        EXPECT_EQ(fromMono[0], fromMono[1]);
        EXPECT_EQ(stereo[0], fromMono[0]);  // the left side alike whether or not the right is fed
        EXPECT_NE(stereo[0], stereo[1]);
    }
    {
        const std::string demo = example("dsp-demo.xml");
        CircuitEffect e;
        startWith(e, demo, kRate, 256);
        const auto got = effectRender(e, in, 256);
        const auto reference = engineRender(demo, "dsp-demo.xml", in, kRate, 256);
        ASSERT_EQ(2u, reference.size());
        EXPECT_LE(relativeDifference(got[0], reference[0]), 1e-6);
        EXPECT_LE(relativeDifference(got[1], reference[1]), 1e-6);
    }
}

// Oversampling runs the whole document at a multiple of the rate between the engine's IIR
// interpolator and decimator, as the netlist importer writes them.
TEST(KelmCircuitEffect, OversamplingPutsTheEnginesResamplersAroundTheDocument) {
    const auto in = testSignal(18 * 256, kRate);  // whole blocks: the reference runs in blocks of 256
    const std::string doc = example("baxandall.xml");
    for (int position : {1, 2, 3}) {
        const int factor = 1 << position;
        CircuitEffect e;
        e.setParameter(CircuitEffect::kOversampling, position / 3.0f);
        startWith(e, doc, kRate, 256);
        const auto got = effectRender(e, in, 256);

        const PropertyMap p{{"RelativeCornerFrequency", "0.485"}, {"Factor", std::to_string(factor)}, {"Order", "2"},
                            {"Type", "Butterworth"}, {"Cascade", "4"}};
        auto up = makeFilter<IirInterpolator>(p, 256);
        auto down = makeFilter<IirDecimator>(p, 256 * factor);
        up->sampleRateChanged(static_cast<scalar>(kRate * factor));
        down->sampleRateChanged(static_cast<scalar>(kRate * factor));
        std::vector<float> high;
        for (size_t offset = 0; offset < in[0].size(); offset += 256) {
            BufferList b = {const_cast<float*>(in[0].data()) + offset};
            up->process(b, 256);
            high.insert(high.end(), up->getOutput(0), up->getOutput(0) + 256 * factor);
        }
        const auto circuit = engineRender(doc, "baxandall.xml", {high, high}, kRate * factor, 256 * factor);
        std::vector<float> expected;
        for (size_t offset = 0; offset < high.size(); offset += 256 * factor) {
            BufferList b = {const_cast<float*>(circuit[0].data()) + offset};
            down->process(b, 256 * factor);
            expected.insert(expected.end(), down->getOutput(0), down->getOutput(0) + 256);
        }
        EXPECT_LE(relativeDifference(got[0], expected), 1e-6) << factor << "x";
    }
}

// The state holds the document's text, name and every parameter: a new instance given it
// plays the same samples. A document's text alone also loads, with its own values.
TEST(KelmCircuitEffect, StateRoundTripsTheDocumentAndEveryParameter) {
    const auto in = testSignal(9600, kRate);
    CircuitEffect a;
    startWith(a, example("baxandall.xml"));
    a.setParameter(0, 0.8f);
    a.setParameter(1, 0.3f);
    a.setParameter(CircuitEffect::kInputLevel, 0.6f);
    a.setParameter(CircuitEffect::kMix, 0.9f);
    a.setReloadOnChange(true);
    const std::string state = a.getState();
    EXPECT_EQ(0u, state.find(CircuitState::kMagic));

    CircuitEffect b;
    b.setSampleRate(static_cast<float>(kRate));
    b.setBlockSize(kBlock);
    ASSERT_TRUE(b.setState(state.data(), state.size())) << b.status().error;
    b.resume();
    a.suspend();
    a.resume();  // the same start for both
    for (int i = 0; i < 20; ++i) EXPECT_EQ(a.getParameter(i), b.getParameter(i)) << i;
    EXPECT_TRUE(b.reloadOnChange());
    EXPECT_EQ(effectRender(a, in, kBlock), effectRender(b, in, kBlock));
    EXPECT_EQ(state, b.getState());

    // A preset that is a plain file: the document's own values.
    const std::string plain = example("baxandall.xml");
    ASSERT_TRUE(b.setState(plain.data(), plain.size()));
    EXPECT_FLOAT_EQ(0.5f, b.getParameter(0));
    EXPECT_EQ("preset", b.status().name);
    const CircuitState decoded = CircuitState::decode(b.getState().data(), b.getState().size());
    EXPECT_EQ(plain, decoded.document);
    EXPECT_EQ(20u, decoded.parameters.size());
}

TEST(KelmCircuitEffect, StatesThatDoNotReadAreRefusedByKind) {
    auto kind = [](const std::string& bytes) {
        try {
            CircuitState::decode(bytes.data(), bytes.size());
        } catch (const DocumentError& e) {
            return static_cast<int>(e.kind());
        }
        return -1;
    };
    EXPECT_EQ(DocumentError::Empty, kind(""));
    EXPECT_EQ(DocumentError::State, kind(std::string(CircuitState::kMagic) + "name: x\ndocument: 10\nshort"));
    EXPECT_EQ(DocumentError::State, kind(std::string(CircuitState::kMagic) + "name: x\n"));
    // Keys of a later version are passed over.
    const std::string later = std::string(CircuitState::kMagic) + "colour: red\ndocument: 3\nabc";
    EXPECT_EQ("abc", CircuitState::decode(later.data(), later.size()).document);
}

// Every fault is reported with the file, the line where there is one, and what is wrong;
// the document that played goes on, sample for sample as if nothing had been tried.
TEST(KelmCircuitEffect, RefusedDocumentsLeaveTheCurrentOnePlaying) {
    struct Case {
        std::string bytes;
        DocumentError::Kind kind;
        std::string says;
    };
    const std::string binary("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    std::string netlist = "huge\n";
    for (int i = 0; i < 10000; ++i) netlist += "R" + std::to_string(i) + " n" + std::to_string(i) + " 0 1k\n";
    const std::vector<Case> cases = {
        {binary, DocumentError::Binary, "preset:3: binary data (a NUL byte at offset 8)"},
        {"<System>\n<Graphs>\n<Graph Name=\"a\"\n</System>", DocumentError::Syntax, "preset:4: XML"},
        {example("baxandall.xml").replace(example("baxandall.xml").find("Type=\"Resistor\""), 15, "Type=\"Resistr\""),
         DocumentError::Build, "Resistr"},
        {"title\nR1 a 0 1k\nQ1 c b e NOSUCHMODEL\nVin a 0 0\n.end\n", DocumentError::Netlist, "preset:3: "},
        {ladder(10000), DocumentError::TooLarge, "10002 elements, more than the 2000"},
        {netlist, DocumentError::TooLarge, "preset:2002: more than 2000 elements"},
        {"", DocumentError::Empty, "empty"},
    };
    const auto in = testSignal(4096, kRate);
    CircuitEffect tried, untouched;
    startWith(tried, example("baxandall.xml"));
    startWith(untouched, example("baxandall.xml"));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.says);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(tried.setState(c.bytes.empty() ? nullptr : c.bytes.data(), c.bytes.size()));
        EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 2.0);
        EXPECT_EQ(c.kind, kindOf(c.bytes, "preset"));
        const CircuitEffect::Status s = tried.status();
        EXPECT_NE(std::string::npos, s.error.find(c.says)) << s.error;
        EXPECT_EQ("preset", s.name);  // the last good state's name: a plain text
        EXPECT_EQ((std::vector<std::string>{"Bass", "Treble"}), s.controls);
        EXPECT_EQ(effectRender(untouched, in, kBlock), effectRender(tried, in, kBlock));
    }
    // A good one clears the error.
    const std::string good = example("baxandall.xml");
    EXPECT_TRUE(tried.setState(good.data(), good.size()));
    EXPECT_EQ("", tried.status().error);
}

// A control keeps the value it was moved to when the new document has a control of that
// name; one left at its default takes the new document's default.
TEST(KelmCircuitEffect, AMovedControlKeepsItsValueAcrossAReload) {
    CircuitEffect e;
    startWith(e, example("baxandall.xml"));
    e.setParameter(0, 0.8f);  // Bass moved; Treble left
    std::string edited = example("baxandall.xml");
    const size_t treble = edited.find("Name=\"Treble\" DisplayName=\"Treble\" Value=\"0.5\"");
    ASSERT_NE(std::string::npos, treble);
    edited.replace(edited.find("Value=\"0.5\"", treble), 11, "Value=\"0.3\"");
    e.loadText(edited, "baxandall.xml");
    ASSERT_TRUE(e.waitForLoads(10));
    EXPECT_EQ("", e.status().error);
    EXPECT_FLOAT_EQ(0.8f, e.getParameter(0));
    EXPECT_FLOAT_EQ(0.3f, e.getParameter(1));
}

// With the toggle on, a file that changes on disk is loaded again while blocks run.
TEST(KelmCircuitEffect, ReloadsTheFileWhenItChangesOnDisk) {
    const std::string path = (std::filesystem::temp_directory_path() / "kelm-circuit-reload.xml").string();
    {
        std::ofstream(path, std::ios::binary) << example("baxandall.xml");
    }
    CircuitEffect e;
    e.setSampleRate(static_cast<float>(kRate));
    e.setBlockSize(256);
    e.resume();
    e.loadFile(path);
    ASSERT_TRUE(e.waitForLoads(10));
    EXPECT_EQ("kelm-circuit-reload.xml", e.status().name);
    EXPECT_EQ(path, e.status().path);
    e.setReloadOnChange(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));  // the worker notes the file as it is
    {
        std::ofstream(path, std::ios::binary) << example("dsp-demo.xml") << "\n<!-- edited -->\n";
    }
    const auto in = testSignal(256, kRate);
    for (int i = 0; i < 400 && e.parameterName(0) != "Bypass"; ++i) {
        effectRender(e, in, 256);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ("Bypass", e.parameterName(0));
    // Off: a change is left alone.
    e.setReloadOnChange(false);
    {
        std::ofstream(path, std::ios::binary) << example("baxandall.xml") << "\n<!-- again -->\n";
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ("Bypass", e.parameterName(0));
    std::filesystem::remove(path);
}

// Every built-in example (the files of examples/) loads and plays at a host's usual settings.
TEST(KelmCircuitEffect, EveryBuiltInExampleLoadsAndPlays) {
    int files = 0;
    for (const auto& e : std::filesystem::directory_iterator(sourcePath("examples"))) {
        const std::string ext = e.path().extension().string();
        files += ext == ".xml" || ext == ".cir" || ext == ".net";
    }
    EXPECT_EQ(files, BuiltInExamples::count());
    EXPECT_GE(BuiltInExamples::find(CircuitEffect::kDefaultExample), 0);
    const auto in = testSignal(512, kRate, 0.1f);
    for (int i = 0; i < BuiltInExamples::count(); ++i) {
        const std::string name = BuiltInExamples::name(i);
        EXPECT_EQ(readText(sourcePath("examples/" + name)), BuiltInExamples::text(i)) << name;
        std::unique_ptr<CircuitDocument> made;
        ASSERT_EQ("", messageOf([&] { made.reset(new CircuitDocument(BuiltInExamples::text(i), name, {})); })) << name;
        CircuitDocument& d = *made;
        std::vector<float> l(512), r(512);
        d.process(const_cast<float*>(in[0].data()), const_cast<float*>(in[1].data()), l.data(), r.data(), 512);
        EXPECT_TRUE(std::all_of(l.begin(), l.end(), [](float x) { return std::isfinite(x); })) << name;
        EXPECT_TRUE(d.hasRun());
    }
}

// A second document given while another thread runs blocks: every block comes out, no
// sample at a switch above the louder document's peak plus 1 dB, and the switches happen.
// (Run under ThreadSanitizer in the Threads set.)
TEST(KelmCircuitEffect, ReloadWhileTheAudioThreadRuns) {
    const int block = 256, blocks = 300;
    const auto in = testSignal(block * blocks, kRate);
    const std::string a = example("baxandall.xml"), b = example("diode-clipper.xml");
    float loudest = 0;
    for (const std::string* doc : {&a, &b}) {
        CircuitEffect alone;
        startWith(alone, *doc, kRate, block);
        const auto out = effectRender(alone, in, block);
        loudest = std::max({loudest, peak(out[0]), peak(out[1])});
    }
    CircuitEffect e;
    startWith(e, a, kRate, block);
    std::vector<std::vector<float>> out(2, std::vector<float>(in[0].size()));
    std::atomic<int> done{0};
    std::thread audio([&] {
        for (int k = 0; k < blocks; ++k) {
            float* i[2] = {const_cast<float*>(in[0].data()) + k * block, const_cast<float*>(in[1].data()) + k * block};
            float* o[2] = {out[0].data() + k * block, out[1].data() + k * block};
            e.process(i, o, block);
            done.store(k + 1);
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    });
    std::vector<std::string> names;
    for (int s = 0; s < 6 && done.load() < blocks - 20; ++s) {
        e.loadText(s % 2 ? a : b, s % 2 ? "a.xml" : "b.xml");
        EXPECT_TRUE(e.waitForLoads(10));
        names.push_back(e.status().name);
        const int at = done.load();
        while (done.load() < std::min(blocks, at + 15)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    audio.join();
    EXPECT_EQ(blocks, done.load());
    EXPECT_GE(names.size(), 4u);
    for (size_t s = 0; s < names.size(); ++s) EXPECT_EQ(s % 2 ? "a.xml" : "b.xml", names[s]);
    const float limit = loudest * std::pow(10.0f, 1.0f / 20.0f);
    for (int c = 0; c < 2; ++c) {
        EXPECT_LE(peak(out[c]), limit) << c;
        for (int k = 0; k < blocks; ++k) EXPECT_GT(peak(out[c], k * block, (k + 1) * block), 0.0f) << "block " << k;
    }
    EXPECT_EQ("", e.status().error);
}
