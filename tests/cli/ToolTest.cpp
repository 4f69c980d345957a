// What the kelm tool shows its user: version, output formats, rates in force, progress.
#include <cmath>
#include <sys/stat.h>

#include "tests/TestUtil.h"

using namespace kelm::test;

namespace {

std::string kelmTool() { return KELM_CLI_PATH; }

int formatOf(const std::string& path) {
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f) return 0;
    sf_close(f);
    return info.format;
}

} // namespace

TEST(CliTool, VersionNamesTheToolAndItsLibraries) {
    auto r = run(kelmTool() + " --version");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ(0u, r.output.find("kelm 1.0.80 (libsndfile-")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("cairo ")) << r.output;
}

TEST(CliTool, OutputFormatsByNameOrOptionHoldTheSamplesToTheirResolution) {
    const int rate = 44100;
    std::vector<float> x = noise(4000, 7);
    for (float& v : x) v *= 0.4f;
    const std::string in = tempPath("fmt_in.wav"), ref = tempPath("fmt_ref.wav");
    writeWav(in, x, 1, rate);
    const std::string system = " --system " + sourcePath("examples/baxandall.xml");
    auto r = run(kelmTool() + " render" + system + " --in " + in + " --out " + ref);
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_FLOAT, formatOf(ref));
    const std::vector<float> exact = readWav(ref);
    ASSERT_EQ(x.size(), exact.size());
    struct Case {
        std::string name, option;
        int format;
        double step;  // one quantisation step
    } cases[] = {
        {"a.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, std::ldexp(1.0, -23)},
        {"b.wav", " --format pcm16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, std::ldexp(1.0, -15)},
        {"c.wav", " --format pcm24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, std::ldexp(1.0, -23)},
        {"d.out", " --format flac16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, std::ldexp(1.0, -15)},
        {"e.FLAC", " --format float", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0},
    };
    for (const Case& c : cases) {
        const std::string out = tempPath(c.name);
        r = run(kelmTool() + " render" + system + " --in " + in + " --out " + out + c.option);
        ASSERT_EQ(0, r.status) << c.name << r.output;
        EXPECT_EQ(c.format, formatOf(out)) << c.name;
        const std::vector<float> y = readWav(out);
        ASSERT_EQ(exact.size(), y.size()) << c.name;
        double worst = 0;
        for (size_t i = 0; i < y.size(); ++i) worst = std::max(worst, std::fabs(static_cast<double>(y[i]) - exact[i]));
        EXPECT_LE(worst, c.step) << c.name;
        std::remove(out.c_str());
    }
    r = run(kelmTool() + " render" + system + " --in " + in + " --out " + tempPath("x.wav") + " --format mp3");
    EXPECT_EQ(2, r.status);
    EXPECT_NE(std::string::npos, r.output.find("unknown output format 'mp3'")) << r.output;
    std::remove(in.c_str());
    std::remove(ref.c_str());
}

TEST(CliTool, InfoShowsTheRatesThatTheControlsPutInForce) {
    auto rateOf = [](const std::string& text, const std::string& graph) {
        const size_t at = text.find("  " + graph + " [");
        if (at == std::string::npos) return std::string("missing");
        const size_t rate = text.find("rate ", at);
        return text.substr(rate, text.find('\n', rate) - rate);
    };
    auto r = run(kelmTool() + " info");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ("rate x1 -> x1", rateOf(r.output, "V1")) << r.output;  // Oversampling starts at 0: 1x
    r = run(kelmTool() + " info --set Oversampling=1 --rate 44100");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("At 44100 Hz")) << r.output;
    EXPECT_EQ("rate x1 -> x4", rateOf(r.output, "G1"));
    EXPECT_EQ("rate x4 -> x4", rateOf(r.output, "V1"));
    EXPECT_EQ("rate x4 -> x1", rateOf(r.output, "G2"));
    // A document's own control takes its values untransformed: here the factor itself.
    r = run(kelmTool() + " info --set Oversampling=2 --system " + sourcePath("examples/oversampling.xml"));
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ("rate x1 -> x2", rateOf(r.output, "G1")) << r.output;
    r = run(kelmTool() + " info --set Presence=1");
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.output.find("known controls")) << r.output;
}

TEST(CliTool, RendersShowProgressWhenAskedAndEveryRenderItsRealTimeFactor) {
    // Whether a render outlasts the two seconds after which a terminal sees progress depends on the machine,
    // so the line is asked for from the start: once through a terminal, once into a pipe.
    const std::string in = tempPath("long.wav"), shortIn = tempPath("short.wav"), out = tempPath("long_out.wav");
    auto r = run(kelmTool() + " signal --seconds 15 --out " + in);
    ASSERT_EQ(0, r.status) << r.output;
    r = run(kelmTool() + " signal --seconds 1 --out " + shortIn);
    ASSERT_EQ(0, r.status) << r.output;
    const std::string render = kelmTool() + " render --out " + out + " --set CPU=0 --set Oversampling=1 --in ";
    // script(1) gives the tool a terminal on its standard error.
    r = run("script -qec '" + render + in + " --progress' /dev/null");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("\rrendering ")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("of 15.0 s")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("15.00 s of audio in")) << r.output;
    r = run(render + shortIn + " --progress");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("of 1.0 s")) << r.output;
    // Without a terminal and without the option: the closing line only.
    r = run(render + shortIn + " 2>/dev/null");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ(std::string::npos, r.output.find("rendering ")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("x real time")) << r.output;
    r = run(kelmTool() + " info --progress");
    EXPECT_NE(0, r.status);
    EXPECT_NE(std::string::npos, r.output.find("unknown option '--progress'")) << r.output;
    for (const std::string& f : {in, shortIn, out}) std::remove(f.c_str());
}
