// The kelm tool end to end: rendering a DSP-only system and its error handling.
#include <cmath>
#include <random>
#include <sys/stat.h>

#include "tests/TestUtil.h"

using namespace kelm::test;

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string kelmTool() { return KELM_CLI_PATH; }

// The example system computed independently: returns {out0, out1} per frame.
std::vector<std::pair<double, double>> demoReference(const std::vector<float>& x0, const std::vector<float>& x1,
                                                     bool bypass, int select) {
    std::vector<std::pair<double, double>> y;
    double e = 0, s = 0;
    for (size_t n = 0; n < x0.size(); ++n) {
        double sel = select == 0 ? (x0[n] - x1[n]) * 0.5 : 0.5 * x0[n];
        double m = 0.8 * sel;
        e = m + 0.5 * e;
        s = s / 8 + 7.0 / 8 * e;
        y.emplace_back(bypass ? s : 10 * s, e);
    }
    return y;
}

} // namespace

TEST(CliRender, DemoSystemMatchesIndependentComputationSampleBySample) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(-1, 1);
    const size_t frames = 3000;
    std::vector<float> x0(frames), x1(frames), interleaved;
    for (size_t i = 0; i < frames; ++i) {
        x0[i] = u(rng);
        x1[i] = u(rng);
        interleaved.push_back(x0[i]);
        interleaved.push_back(x1[i]);
    }
    std::string in = tempPath("in.wav"), out = tempPath("out.wav");
    writeWav(in, interleaved, 2, 44100);
    struct Variant {
        std::string args;
        bool bypass;
        int select;
    } variants[] = {{"", true, 0}, {" --block 1", true, 0}, {" --block 100 --set Bypass=0 --set Select=1", false, 1}};
    for (const Variant& v : variants) {
        auto r = run(kelmTool() + " render --system " + sourcePath("examples/dsp-demo.xml") + " --in " + in + " --out " +
                     out + v.args);
        ASSERT_EQ(0, r.status) << r.output;
        int channels = 0, rate = 0;
        auto y = readWav(out, &channels, &rate);
        ASSERT_EQ(2, channels);
        ASSERT_EQ(44100, rate);
        ASSERT_EQ(frames * 2, y.size());
        auto ref = demoReference(x0, x1, v.bypass, v.select);
        for (size_t n = 0; n < frames; ++n) {
            ASSERT_NEAR(ref[n].first, y[2 * n], 1e-5 * (v.bypass ? 1 : 10)) << v.args << " frame " << n;
            ASSERT_NEAR(ref[n].second, y[2 * n + 1], 1e-5) << v.args << " frame " << n;
        }
    }
    // A mono file feeds every system input from its one channel: x0 - x1 = 0.
    writeWav(in, x0, 1, 48000);
    auto r = run(kelmTool() + " render --system " + sourcePath("examples/dsp-demo.xml") + " --in " + in + " --out " + out);
    ASSERT_EQ(0, r.status) << r.output;
    auto y = readWav(out);
    for (float v : y) ASSERT_EQ(0.0f, v);
    std::remove(in.c_str());
    std::remove(out.c_str());
}

TEST(CliRender, BadInputGivesOneLineErrorsAndLeavesNoOutput) {
    std::string in = tempPath("in2.wav"), out = tempPath("never.wav"), bad = tempPath("bad.xml");
    writeWav(in, std::vector<float>(100, 0.1f), 1, 48000);
    {
        std::ofstream f(bad);
        f << "<System><Graphs><Graph Name=\"A\" Type=\"DSP\"></Graphs></System>";
    }
    std::string demo = sourcePath("examples/dsp-demo.xml");
    struct Case {
        std::string args;
        std::string expect;
        int status;
    } cases[] = {
        {"render --system " + bad + " --in " + in + " --out " + out, "XML error in system description", 1},
        {"render --system " + demo + " --in " + in + " --out " + out + " --set Volume=1",
         "unknown control 'Volume'; known controls: Bypass, Mute, Select", 1},
        {"render --system " + demo + " --in /nonexistent.wav --out " + out, "cannot read audio file", 1},
        {"render --system " + demo + " --in " + in + " --out " + out + " --block 0", "bad block size", 2},
        {"render --system " + demo + " --in " + in + " --out " + out + " --frobnicate", "unknown option", 2},
        {"render --system /nonexistent.xml --in " + in + " --out " + out, "cannot read system description", 1},
        {"render --system " + demo + " --in " + in + " --out /nonexistent-dir/x.wav", "cannot write audio file", 1},
        {"info --system " + sourcePath("tests/data/missing-analysis.xml"), "Analysis node is missing in the graph C", 1},
        {"transmogrify", "unknown command", 2},
    };
    for (const Case& c : cases) {
        auto r = run(kelmTool() + " " + c.args);
        EXPECT_EQ(c.status, r.status) << c.args << "\n" << r.output;
        EXPECT_NE(std::string::npos, r.output.find(c.expect)) << c.args << "\n" << r.output;
        EXPECT_EQ(0, r.output.rfind("kelm: ", 0)) << r.output;
        EXPECT_FALSE(exists(out)) << c.args;
    }
    std::remove(in.c_str());
    std::remove(bad.c_str());
}

TEST(CliInfo, DescribesGraphsInProcessingOrderAndControls) {
    auto r = run(kelmTool() + " info --system " + sourcePath("examples/dsp-demo.xml"));
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("6 graph(s), 2 input(s), 2 output(s), 3 control(s)")) << r.output;
    EXPECT_LT(r.output.find("  Mix [DSP]"), r.output.find("  Echo [DSP]"));
    EXPECT_LT(r.output.find("  Echo [DSP]"), r.output.find("  Smooth [DSP]"));
    EXPECT_NE(std::string::npos, r.output.find("Select = 0  -> Mix/Sel:Position")) << r.output;
}
