// Kelm.clap in our own CLAP host (tests/clap/ClapTestHost.h), loaded as hosts load it:
// the file's exports, the factory and its plug-in, the parameters and their texts, renders
// with parameters set by events (one in the middle of a block) against `kelm render` and
// the effect core, state from one instance into another, and what the plug-in asks of the
// host. Kelm Circuit from the same file: its parameters named after the document, states
// holding a document's text rendering as `kelm render --system` does, and the host told of
// the new names. Debian's Qtractor scanner reads the file where it is installed.
#include <cmath>
#include <cstdio>

#include "plugin/core/CircuitEffect.h"
#include "plugin/core/KelmEffect.h"
#include "tests/TestUtil.h"
#include "tests/clap/ClapTestHost.h"
#include "tests/plugin/CoreRender.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const ClapModule& module() {
    static ClapModule m(KELM_CLAP_PATH);
    return m;
}

// Two channels that differ: a chord on the left, a plucked decay on the right.
void stereoSignal(size_t n, std::vector<float>& left, std::vector<float>& right) {
    left.resize(n);
    right.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const double t = static_cast<double>(i) / 48000;
        left[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 196 * t) + 0.15 * std::sin(2 * M_PI * 2470 * t));
        right[i] = static_cast<float>(0.5 * std::exp(-3 * t) * std::sin(2 * M_PI * 330 * t));
    }
}

int firstDifference(const std::vector<float>& a, const std::vector<float>& b) {
    if (a.size() != b.size()) return -2;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i]) return static_cast<int>(i);
    return -1;
}

} // namespace

TEST(ClapFile, ExportsOnlyTheEntryAndCarriesItsRuntime) {
    KELM_SKIP_IN_SANITIZED_BUILD();
    EXPECT_EQ(std::vector<std::string>{"clap_entry"}, exportedSymbols(KELM_CLAP_PATH));
    EXPECT_FALSE(needsSharedLibstdcxx(KELM_CLAP_PATH));
}

TEST(ClapFile, FactoryListsBothPluginsAndMakesEachByItsIdOnly) {
    const ClapModule& m = module();
    ASSERT_TRUE(m.ok()) << m.error;
    EXPECT_EQ(1u, m.entry->version.major);
    EXPECT_EQ(nullptr, m.entry->get_factory("clap.preset-discovery-factory"));
    ASSERT_EQ(2u, m.count());
    EXPECT_EQ(nullptr, m.descriptor(2));
    struct Expected {
        const char* id;
        const char* name;
        std::vector<std::string> features;
    };
    const Expected expected[] = {{"kelm.preamp", "Kelm Preamp", {"audio-effect", "distortion", "stereo"}},
                                 {"kelm.circuit", "Kelm Circuit", {"audio-effect", "stereo"}}};
    for (uint32_t k = 0; k < 2; ++k) {
        const clap_plugin_descriptor* d = m.descriptor(k);
        ASSERT_NE(nullptr, d);
        EXPECT_EQ(expected[k].id, std::string(d->id));
        EXPECT_EQ(expected[k].name, std::string(d->name));
        EXPECT_EQ("Tallowbridge Labs", std::string(d->vendor));
        EXPECT_EQ("1.0.80", std::string(d->version_text));
        std::vector<std::string> features;
        for (const char* const* f = d->features; *f; ++f) features.push_back(*f);
        EXPECT_EQ(expected[k].features, features);
        ClapInstance p(m, d->id);
        ASSERT_TRUE(p.ok()) << d->id;
        EXPECT_EQ(d, p.plugin->desc);
        EXPECT_NE(nullptr, p.gui) << d->id;
        // A stereo pair in and out, and no latency.
        for (bool input : {true, false}) {
            ASSERT_EQ(1u, p.ports->count(p.plugin, input));
            clap_audio_port_info info;
            ASSERT_TRUE(p.ports->get(p.plugin, 0, input, &info));
            EXPECT_EQ(2u, info.channel_count);
            EXPECT_EQ(kAudioPortIsMain, info.flags);
            EXPECT_EQ("stereo", std::string(info.port_type));
            EXPECT_FALSE(p.ports->get(p.plugin, 1, input, &info));
        }
        ASSERT_NE(nullptr, p.latency);
        EXPECT_EQ(0u, p.latency->get(p.plugin));
    }
    // An id with anything after it, or an unknown one, makes nothing.
    EXPECT_FALSE(ClapInstance(m, "kelm.preamp ").ok());
    EXPECT_FALSE(ClapInstance(m, "kelm.pre").ok());
    EXPECT_FALSE(ClapInstance(m, "kelm.circuit.").ok());
}

TEST(ClapParameters, AsTheEffectHasThemWithTextBothWays) {
    ClapInstance p(module(), "kelm.preamp");
    ASSERT_TRUE(p.ok());
    KelmEffect effect;
    ASSERT_EQ(static_cast<uint32_t>(effect.numberOfParameters()), p.paramCount());
    for (uint32_t i = 0; i < p.paramCount(); ++i) {
        const clap_param_info info = p.info(i);
        const int positions = effect.parameterPositions(static_cast<int>(i));
        EXPECT_EQ(i, info.id);
        EXPECT_EQ(effect.parameterName(static_cast<int>(i)), info.name);
        EXPECT_EQ(std::string(), info.module);
        EXPECT_EQ(nullptr, info.cookie);
        EXPECT_EQ(0.0, info.min_value);
        EXPECT_EQ(positions > 1 ? positions - 1 : 1.0, info.max_value) << info.name;
        const uint32_t stepped = kParamIsStepped | kParamIsEnum;
        EXPECT_EQ(kParamIsAutomatable | (positions > 1 ? stepped : 0u), info.flags) << info.name;
        const double defaultValue = effect.getParameter(static_cast<int>(i)) * (positions > 1 ? positions - 1 : 1);
        EXPECT_EQ(defaultValue, info.default_value) << info.name;
        EXPECT_EQ(defaultValue, p.value(info.id)) << info.name;
        // Every value's text reads back as a value with the same text, and the unit follows.
        const int samples = positions > 1 ? positions : 41;
        for (int k = 0; k < samples; ++k) {
            const double v = positions > 1 ? k : k / 40.0;
            const std::string text = p.text(info.id, v);
            ASSERT_NE("<none>", text);
            EXPECT_FALSE(text.empty());
            double back = -1;
            ASSERT_TRUE(p.fromText(info.id, text, back)) << info.name << " " << text;
            EXPECT_EQ(text, p.text(info.id, back)) << info.name << " " << v;
            if (positions > 1) {
                EXPECT_EQ(std::floor(back), back);
            }
        }
    }
    const clap_id gain = p.idOf("Gain"), input = p.idOf("Input"), oversampling = p.idOf("Oversampling");
    EXPECT_EQ("5.0", p.text(gain, 0.5));
    EXPECT_EQ("+0.0 dB", p.text(input, 0.5));
    EXPECT_EQ("-inf dB", p.text(input, 0.0));
    EXPECT_EQ("4x", p.text(oversampling, 2));
    EXPECT_EQ("2x", p.text(oversampling, 0.9999));  // a host's 0.9999 is the position 1
    double v = 0;
    EXPECT_TRUE(p.fromText(oversampling, "2x", v));
    EXPECT_EQ(1.0, v);
    EXPECT_TRUE(p.fromText(input, "+6.0 dB", v));
    EXPECT_NEAR(0.5 * std::pow(10.0, 0.3), v, 1e-6);
    EXPECT_TRUE(p.fromText(gain, "7.5", v));
    EXPECT_NEAR(0.75, v, 1e-6);
    EXPECT_FALSE(p.fromText(gain, "loud", v));
    EXPECT_FALSE(p.fromText(oversampling, "3x", v));
    EXPECT_EQ(kInvalidId, p.info(p.paramCount()).id);
    EXPECT_EQ("<none>", p.text(p.paramCount(), 0.5));
}

TEST(ClapRender, ParametersSetByEventsGiveWhatKelmRenderGives) {
    std::vector<float> left, right, outLeft, outRight;
    stereoSignal(48000, left, right);
    ClapInstance p(module(), "kelm.preamp");
    ASSERT_TRUE(p.ok());
    // Set before activation, as a host restores a session: the warm-up runs at these values.
    p.flush({{p.idOf("Gain"), 0.8}, {p.idOf("Bass"), 0.3}, {p.idOf("Oversampling"), 2.0}, {p.idOf("CPU"), 0.0}});
    ASSERT_TRUE(p.activate(48000, 512, 512));
    ASSERT_EQ(kProcessContinue, p.render(left, right, outLeft, outRight, 512));

    const std::string in = tempPath("clap_in.wav"), out = tempPath("clap_out.wav");
    writeWav(in, interleave(left, right), 2, 48000);
    auto r = run(std::string(KELM_CLI_PATH) + " render --in " + in + " --out " + out +
                 " --set Gain=0.8 --set Bass=0.3 --set Oversampling=1 --set CPU=0 --block 512");
    ASSERT_EQ(0, r.status) << r.output;
    const std::vector<float> tool = readWav(out);
    std::remove(in.c_str());
    std::remove(out.c_str());
    EXPECT_EQ(-1, firstDifference(tool, interleave(outLeft, outRight)));
    EXPECT_GT(relativeError(std::vector<float>(outLeft.size(), 0.0f), outLeft), 0.0);
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();
}

TEST(ClapRender, AChangeInTheMiddleOfABlockFallsOnItsFrame) {
    std::vector<float> left, right, outLeft, outRight;
    stereoSignal(8 * 256, left, right);
    ClapInstance p(module(), "kelm.preamp");
    ASSERT_TRUE(p.ok());
    const int gain = static_cast<int>(p.idOf("Gain")), treble = static_cast<int>(p.idOf("Treble"));
    const int cpu = static_cast<int>(p.idOf("CPU"));
    p.flush({{static_cast<clap_id>(cpu), 0.0}});
    ASSERT_TRUE(p.activate(48000, 1, 256));
    // Block 3 (frames 768 to 1023) changes Gain and Treble at its frame 100.
    const std::vector<ClapParamChange> changes = {{868, static_cast<clap_id>(gain), 0.9},
                                                  {868, static_cast<clap_id>(treble), 0.1}};
    ASSERT_EQ(kProcessContinue, p.render(left, right, outLeft, outRight, 256, changes));
    const CoreChange change = [&](KelmEffect& e) { e.setParameter(gain, 0.9f), e.setParameter(treble, 0.1f); };
    const auto core = renderCore(left, right, {{cpu, 0.0f}}, 256, 868, change);
    EXPECT_EQ(-1, firstDifference(core[0], outLeft));
    EXPECT_EQ(-1, firstDifference(core[1], outRight));
    // Applied at the block's start instead, the change would be heard 100 frames early.
    EXPECT_EQ(768, firstDifference(renderCore(left, right, {{cpu, 0.0f}}, 256, 768, change)[0], outLeft));
    EXPECT_FLOAT_EQ(0.9f, static_cast<float>(p.value(static_cast<clap_id>(gain))));
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();
}

TEST(ClapRender, BlocksOfAnySizeAndNoInput) {
    ClapInstance p(module(), "kelm.preamp");
    ASSERT_TRUE(p.ok());
    ASSERT_TRUE(p.activate(44100, 1, 20000));  // larger than the effect's own blocks
    std::vector<float> l(20000, 0.25f), r(20000, -0.25f), ol, orr;
    EXPECT_EQ(kProcessContinue, p.render(l, r, ol, orr, 20000));
    EXPECT_EQ(kProcessContinue, p.render(l, r, ol, orr, 1));
    // A block of no frames applies its events and touches no audio.
    ClapInstance::EventList events({{0, p.idOf("Gain"), 0.25}}, 0, 1);
    float* none[2] = {nullptr, nullptr};
    EXPECT_EQ(kProcessContinue, p.processBlock(none, none, 2, 0, events));
    EXPECT_EQ(0.25, p.value(p.idOf("Gain")));
    // No input port buffers: the effect hears silence, and every frame is written.
    std::vector<float> a(300, 1.0f), b(300, 1.0f);
    float* out[2] = {a.data(), b.data()};
    ClapInstance::EventList noEvents({}, 0, 0);
    clap_audio_buffer output = {out, nullptr, 2, 0, 0};
    clap_process process = {-1, 300, nullptr, nullptr, &output, 0, 1, &noEvents.list, nullptr};
    EXPECT_EQ(kProcessContinue, p.plugin->process(p.plugin, &process));
    for (float x : a) ASSERT_TRUE(std::isfinite(x) && x != 1.0f) << x;
}

TEST(ClapState, SavedFromOneInstanceRestoresAnother) {
    ClapInstance a(module(), "kelm.preamp");
    ASSERT_TRUE(a.ok());
    a.flush({{a.idOf("Gain"), 0.71}, {a.idOf("Treble"), 0.13}, {a.idOf("Oversampling"), 1}, {a.idOf("Stereo"), 1}});
    std::string saved;
    ASSERT_TRUE(a.save(saved));  // 23 bytes a write
    EXPECT_EQ(0u, saved.find("KelmParameters 1\n"));

    ClapInstance b(module(), "kelm.preamp");
    ASSERT_TRUE(b.ok());
    ASSERT_TRUE(b.load(saved));  // 17 bytes a read
    for (uint32_t i = 0; i < a.paramCount(); ++i) EXPECT_EQ(a.value(i), b.value(i)) << a.info(i).name;
    EXPECT_EQ(std::vector<uint32_t>{kRescanValues}, b.rescans);  // the host re-reads the values
    std::string again;
    ASSERT_TRUE(b.save(again, 1 << 20));
    EXPECT_EQ(saved, again);

    // Both give the same samples.
    std::vector<float> left, right, la, ra, lb, rb;
    stereoSignal(4800, left, right);
    ASSERT_TRUE(a.activate(48000, 480, 480));
    ASSERT_TRUE(b.activate(48000, 480, 480));
    a.render(left, right, la, ra, 480);
    b.render(left, right, lb, rb, 480);
    EXPECT_EQ(-1, firstDifference(la, lb));
    EXPECT_EQ(-1, firstDifference(ra, rb));
    EXPECT_EQ(-1, firstDifference(lb, rb));  // Stereo=Mono came along: the right is the left

    // What is no state changes nothing: empty, another format, a broken line.
    ClapInstance c(module(), "kelm.preamp");
    ASSERT_TRUE(c.ok());
    const double before = c.value(c.idOf("Gain"));
    for (const std::string& junk : {std::string(), std::string("\x89PNG\r\n\x1a\n", 8), std::string("KelmParameters 1\n1 0.2 Gain\n99 1 X\n"),
                                    std::string("KelmParameters 1\n1 abc Gain\n")}) {
        EXPECT_FALSE(c.load(junk)) << junk;
        EXPECT_EQ(before, c.value(c.idOf("Gain")));
    }
    EXPECT_TRUE(c.rescans.empty());
    EXPECT_TRUE(a.faults.empty() && b.faults.empty() && c.faults.empty());
}

// Kelm Circuit's parameters: the document's controls in its slots ("-" when unused), then
// Input level, Output level, Oversampling and Mix, as the effect core names and shows them.
TEST(ClapCircuit, ParametersAreTheDocumentsControlsThenTheFixedOnes) {
    ClapInstance p(module(), "kelm.circuit");
    ASSERT_TRUE(p.ok());
    CircuitEffect effect;  // the same example plays in both from the start
    ASSERT_EQ(static_cast<uint32_t>(CircuitEffect::kNumberOfParameters), p.paramCount());
    for (uint32_t i = 0; i < p.paramCount(); ++i) {
        const clap_param_info info = p.info(i);
        const int k = static_cast<int>(i);
        EXPECT_EQ(i, info.id);
        EXPECT_EQ(effect.parameterName(k), info.name);
        const bool stepped = k == CircuitEffect::kOversampling;
        EXPECT_EQ(stepped ? 3.0 : 1.0, info.max_value) << info.name;
        EXPECT_EQ(kParamIsAutomatable | (stepped ? kParamIsStepped | kParamIsEnum : 0u), info.flags) << info.name;
        EXPECT_FLOAT_EQ(effect.getParameter(k) * (stepped ? 3.0f : 1.0f), static_cast<float>(info.default_value));
        EXPECT_EQ(info.default_value, p.value(info.id));
    }
    EXPECT_EQ("+0.0 dB", p.text(CircuitEffect::kInputLevel, 0.5));
    EXPECT_EQ("8x", p.text(CircuitEffect::kOversampling, 3));
    double v = 0;
    EXPECT_TRUE(p.fromText(CircuitEffect::kOversampling, "2x", v));
    EXPECT_EQ(1.0, v);
}

// A state that is a document's text alone (an example's XML, a SPICE netlist), loaded as a
// host restores a session, renders what `kelm render --system` renders of the file; the
// host hears of the new names and values.
TEST(ClapCircuit, AStateHoldingADocumentRendersAsKelmRender) {
    const auto in = circuit::testSignal(48000, 48000);
    for (const char* file : {"examples/cathode-follower-tonestack.xml", "tests/data/netlist/tonestack.cir"}) {
        SCOPED_TRACE(file);
        const std::string text = readText(sourcePath(file));
        ClapInstance p(module(), "kelm.circuit");
        ASSERT_TRUE(p.ok());
        const std::string before = p.info(0).name;
        ASSERT_TRUE(p.load(text));
        EXPECT_EQ((std::vector<uint32_t>{kRescanValues, kRescanInfo | kRescanText}), p.rescans);
        CircuitEffect reference;
        ASSERT_TRUE(reference.setState(text.data(), text.size()));
        EXPECT_NE(before, reference.parameterName(0));
        for (uint32_t i = 0; i < CircuitEffect::kSlots; ++i)
            EXPECT_EQ(reference.parameterName(static_cast<int>(i)), p.info(i).name);
        ASSERT_TRUE(p.activate(48000, 512, 512));
        std::vector<float> left, right;
        ASSERT_EQ(kProcessContinue, p.render(in[0], in[1], left, right, 512));
        const auto toolLeft = circuit::kelmRenderSystem(sourcePath(file), in[0], 512);
        const auto toolRight = circuit::kelmRenderSystem(sourcePath(file), in[1], 512);
        const double dl = circuit::relativeDifference(left, toolLeft), dr = circuit::relativeDifference(right, toolRight);
        std::printf("%s: Kelm.clap against kelm render --system: %g, %g of peak\n", file, dl, dr);
        // A tube's Newton iteration stops anywhere within its tolerance, and inputs a float
        // rounding apart may stop it at different points: the example's 0.1 mV is 2e-5 of its
        // peak (a linear netlist: to the bit).
        EXPECT_LE(dl, 2e-5);
        EXPECT_LE(dr, 2e-5);
        EXPECT_GT(circuit::peak(toolLeft), 0.0f);
        EXPECT_TRUE(p.faults.empty()) << p.faults.front();
    }
}

// Kelm Circuit's saved state carries the document's text and every parameter: another
// instance given it has the same names and values, saves the same bytes and plays the same
// samples. What is no state leaves an instance as it was.
TEST(ClapCircuit, StateFromOneInstanceRestoresAnotherWithTheSameSamples) {
    const std::string document = readText(sourcePath("examples/baxandall.xml"));
    ClapInstance a(module(), "kelm.circuit");
    ASSERT_TRUE(a.ok());
    ASSERT_TRUE(a.load(document));
    ASSERT_EQ("Bass", std::string(a.info(0).name));
    a.flush({{0, 0.85}, {1, 0.2}, {CircuitEffect::kOutputLevel, 0.45}, {CircuitEffect::kOversampling, 1}});
    std::string saved;
    ASSERT_TRUE(a.save(saved));
    EXPECT_NE(std::string::npos, saved.find(document));  // the text itself, not where it was read from

    ClapInstance b(module(), "kelm.circuit");
    ASSERT_TRUE(b.ok());
    ASSERT_TRUE(b.load(saved));
    EXPECT_EQ((std::vector<uint32_t>{kRescanValues, kRescanInfo | kRescanText}), b.rescans);
    for (uint32_t i = 0; i < a.paramCount(); ++i) {
        EXPECT_EQ(std::string(a.info(i).name), b.info(i).name);
        EXPECT_EQ(a.value(i), b.value(i)) << a.info(i).name;
    }
    EXPECT_EQ(1.0, b.value(CircuitEffect::kOversampling));
    std::string again;
    ASSERT_TRUE(b.save(again, 1 << 20));
    EXPECT_EQ(saved, again);

    const auto in = circuit::testSignal(24000, 44100);
    std::vector<float> la, ra, lb, rb;
    ASSERT_TRUE(a.activate(44100, 256, 256));
    ASSERT_TRUE(b.activate(44100, 256, 256));
    a.render(in[0], in[1], la, ra, 256);
    b.render(in[0], in[1], lb, rb, 256);
    EXPECT_GT(circuit::peak(la), 0.0f);
    EXPECT_EQ(-1, firstDifference(la, lb));
    EXPECT_EQ(-1, firstDifference(ra, rb));

    // Empty, a broken document, bytes of another kind: refused, nothing changed or rescanned.
    b.rescans.clear();
    for (const std::string& junk : {std::string(), std::string("<System><Graphs>"), std::string("\x89PNG\r\n\x1a\n", 8)}) {
        EXPECT_FALSE(b.load(junk)) << junk;
        std::string now;
        ASSERT_TRUE(b.save(now, 1 << 20));
        EXPECT_EQ(saved, now);
    }
    EXPECT_TRUE(b.rescans.empty());
    EXPECT_TRUE(a.faults.empty() && b.faults.empty());
}

TEST(ClapQtractor, ItsScannerListsBothPlugins) {
    KELM_SKIP_IN_SANITIZED_BUILD();
    const auto where = run("dpkg -L qtractor 2>/dev/null | grep '/qtractor_plugin_scan$'");
    std::string scanner = where.output.substr(0, where.output.find('\n'));
    if (where.status != 0 || scanner.empty()) GTEST_SKIP() << "Qtractor is not installed (apt-get install qtractor)";
    const auto r = run("echo 'CLAP:" + std::string(KELM_CLAP_PATH) + "' | " + scanner);
    ASSERT_EQ(0, r.status) << r.output;
    // A line per plug-in: TYPE|name|audio in:out|midi in:out|params in:out|flags|path|index|id
    std::vector<std::vector<std::string>> plugins;
    for (size_t line = r.output.find("CLAP|"); line != std::string::npos; line = r.output.find("CLAP|", line + 1)) {
        const std::string rest = r.output.substr(line, r.output.find('\n', line) - line);
        std::vector<std::string> fields;
        for (size_t at = 0, bar; at <= rest.size(); at = bar + 1) {
            bar = rest.find('|', at);
            if (bar == std::string::npos) bar = rest.size();
            fields.push_back(rest.substr(at, bar - at));
        }
        ASSERT_GE(fields.size(), 9u) << rest;
        plugins.push_back(fields);
        std::printf("%s\n", rest.c_str());
    }
    ASSERT_EQ(2u, plugins.size()) << r.output;
    const char* names[] = {"Kelm Preamp", "Kelm Circuit"};
    const char* params[] = {"9:0", "20:0"};
    for (size_t k = 0; k < 2; ++k) {
        const std::vector<std::string>& fields = plugins[k];
        EXPECT_EQ(names[k], fields[1]);
        EXPECT_EQ("2:2", fields[2]);
        EXPECT_EQ("0:0", fields[3]);
        EXPECT_EQ(params[k], fields[4]);
        EXPECT_NE(std::string::npos, fields[5].find("GUI")) << fields[1];  // it found the window
        EXPECT_EQ(KELM_CLAP_PATH, fields[6]);
        EXPECT_EQ(std::to_string(k), fields[7]);
    }
}
