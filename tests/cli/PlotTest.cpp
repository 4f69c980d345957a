// `kelm plot`: the data behind the charts (written with --csv) against known answers and
// ngspice, and the PNG files themselves.
#include <cmath>
#include <fstream>
#include <map>
#include <sys/stat.h>

#include "tests/TestUtil.h"
#include "tests/circuit/BaxandallReference.h"

using namespace kelm::test;

namespace {

const double kPi = 3.14159265358979323846;

std::string kelmTool() { return KELM_CLI_PATH; }

// panel -> line -> points, from the tool's CSV.
typedef std::map<std::string, std::map<std::string, std::vector<std::pair<double, double>>>> ChartData;

ChartData readChartCsv(const std::string& path) {
    ChartData data;
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ("panel,line,x,y", line);
    while (std::getline(in, line)) {
        // "panel","line",x,y with the texts quoted
        std::vector<std::string> fields(1);
        bool quoted = false;
        for (size_t i = 0; i < line.size(); ++i) {
            const char c = line[i];
            if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
                fields.back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = !quoted;
            } else if (c == ',' && !quoted) {
                fields.emplace_back();
            } else {
                fields.back() += c;
            }
        }
        EXPECT_EQ(4u, fields.size()) << line;
        if (fields.size() == 4) data[fields[0]][fields[1]].emplace_back(std::stod(fields[2]), std::stod(fields[3]));
    }
    return data;
}

// Width and height from a PNG's signature and IHDR chunk; {0, 0} when it is no PNG or lacks its end.
std::pair<unsigned, unsigned> pngSize(const std::string& path) {
    const std::string bytes = readText(path);
    static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (bytes.size() < 45 || bytes.compare(0, 8, reinterpret_cast<const char*>(signature), 8) != 0 ||
        bytes.compare(12, 4, "IHDR") != 0 || bytes.compare(bytes.size() - 8, 4, "IEND") != 0)
        return {0, 0};
    auto be32 = [&](size_t at) {
        unsigned v = 0;
        for (size_t i = 0; i < 4; ++i) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
        return v;
    };
    return {be32(16), be32(20)};
}

// The lines of the panel whose title starts so.
std::map<std::string, std::vector<std::pair<double, double>>>& panel(ChartData& data, const std::string& start) {
    for (auto& p : data)
        if (p.first.rfind(start, 0) == 0) return p.second;
    static std::map<std::string, std::vector<std::pair<double, double>>> none;
    ADD_FAILURE() << "no panel " << start;
    return none;
}

CommandResult plot(const std::string& args, const std::string& png, const std::string& csv) {
    return run(kelmTool() + " plot " + args + " --out " + png + (csv.empty() ? "" : " --csv " + csv));
}

// ngspice's response in dB at an analogue frequency, interpolated in log frequency.
double spiceDb(const std::vector<Point>& spice, double f) {
    for (size_t i = 1; i < spice.size(); ++i)
        if (spice[i].f >= f) {
            const double t = std::log(f / spice[i - 1].f) / std::log(spice[i].f / spice[i - 1].f);
            const double a = 20 * std::log10(std::abs(spice[i - 1].h)), b = 20 * std::log10(std::abs(spice[i].h));
            return a + t * (b - a);
        }
    return NAN;
}

} // namespace

TEST(CliPlot, ToneStackResponseIsFlatAtMidAndItsBassShelfFollowsNgspice) {
    const std::string png = tempPath("bax.png"), csv = tempPath("bax.csv");
    auto r = plot("response --system " + sourcePath("examples/baxandall.xml") +
                      " --set Treble=0.5 --sweep Bass=0,0.5,1 --width 640 --height 480",
                  png, csv);
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ(std::make_pair(640u, 480u), pngSize(png));
    ChartData data = readChartCsv(csv);
    // At the flat setting the inverting stage passes every frequency at 0 dB and -180 degrees.
    const auto& flat = data["Magnitude"]["Bass=0.5"];
    const auto& flatPhase = data["Phase"]["Bass=0.5"];
    ASSERT_EQ(160u, flat.size());
    ASSERT_EQ(160u, flatPhase.size());
    EXPECT_NEAR(20, flat.front().first, 1e-6);
    EXPECT_NEAR(20000, flat.back().first, 1e-3);
    for (size_t i = 0; i < flat.size(); ++i) {
        ASSERT_NEAR(0, flat[i].second, 0.01) << flat[i].first << " Hz";
        ASSERT_NEAR(-180, flatPhase[i].second, 0.05) << flat[i].first << " Hz";
    }
    // The shelves at the ends of the bass pot against ngspice at the prewarped frequencies.
    const double fs = 48000;
    for (double bass : {0.0, 1.0}) {
        const auto spice = ngspiceResponse(bass, 0.5);
        ASSERT_GT(spice.size(), 200u);
        const auto& line = data["Magnitude"][bass == 0 ? "Bass=0" : "Bass=1"];
        ASSERT_EQ(160u, line.size());
        double worst = 0;
        for (const auto& p : line) {
            const double analogue = fs / kPi * std::tan(kPi * p.first / fs);
            worst = std::max(worst, std::fabs(p.second - spiceDb(spice, analogue)));
        }
        std::printf("bass %.0f: largest difference from ngspice %.4f dB\n", bass, worst);
        EXPECT_LT(worst, 0.02) << "bass " << bass;
        // A shelf of about 18 dB at 20 Hz that is gone by 5 kHz.
        EXPECT_GT(std::fabs(line.front().second), 15) << "bass " << bass;
        for (const auto& p : line) {
            if (p.first > 5000) {
                EXPECT_LT(std::fabs(p.second), 0.3) << p.first << " Hz";
            }
        }
    }
    std::remove(png.c_str());
    std::remove(csv.c_str());
}

TEST(CliPlot, TransferCurveIsStraightForALinearSystemAndCompressesForThePreamp) {
    const std::string png = tempPath("curve.png"), csv = tempPath("curve.csv");
    // The tone stack at its flat setting is linear with a gain of one.
    auto r = plot("curve --system " + sourcePath("examples/baxandall.xml"), png, csv);
    ASSERT_EQ(0, r.status) << r.output;
    ChartData data = readChartCsv(csv);
    ASSERT_EQ(2u, data.size());
    const auto& linear = panel(data, "Output against input")[""];
    ASSERT_EQ(41u, linear.size());
    EXPECT_EQ(0.0, linear[0].second);
    for (size_t i = 1; i < linear.size(); ++i) ASSERT_NEAR(1.0, linear[i].second / linear[i].first, 1e-4) << i;
    ASSERT_EQ(4u, data["Harmonics"].size());
    for (auto& h : data["Harmonics"])
        for (auto& p : h.second) ASSERT_LT(p.second, -100) << h.first << " at " << p.first;

    // The built-in preamp: rises, then gains less and less, and distorts the more the louder.
    r = plot("curve", png, csv);
    ASSERT_EQ(0, r.status) << r.output;
    data = readChartCsv(csv);
    const auto& curve = panel(data, "Output against input")[""];
    ASSERT_EQ(41u, curve.size());
    for (size_t i = 1; i <= 12; ++i) ASSERT_GT(curve[i].second, curve[i - 1].second) << i;
    const double smallSignalGain = curve[1].second / curve[1].first;
    const double topGain = curve.back().second / curve.back().first;
    EXPECT_GT(smallSignalGain, 0.5);
    EXPECT_LT(topGain, 0.6 * smallSignalGain);
    const auto& second = data["Harmonics"]["2nd harmonic"];
    EXPECT_GT(second.back().second, -30);
    EXPECT_GT(second.back().second, second.front().second + 20);
    std::remove(png.c_str());
    std::remove(csv.c_str());
}

TEST(CliPlot, SpectrumOfAFileReadsASineAtItsLevel) {
    const int rate = 48000;
    const size_t bin = 171;
    const double f = bin * static_cast<double>(rate) / 8192;  // on an analysis bin, near 1 kHz
    std::vector<float> stereo;
    for (int i = 0; i < rate; ++i) {
        stereo.push_back(static_cast<float>(0.25 * std::sin(2 * kPi * f * i / rate)));
        stereo.push_back(0.0f);
    }
    const std::string wav = tempPath("sine.wav"), png = tempPath("spec.png"), csv = tempPath("spec.csv");
    writeWav(wav, stereo, 2, rate);
    auto r = plot("spectrum --in " + wav + " --width 800 --height 500", png, csv);
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ(std::make_pair(800u, 500u), pngSize(png));
    ChartData data = readChartCsv(csv);
    ASSERT_EQ(1u, data.size());
    auto& lines = data.begin()->second;
    ASSERT_EQ(2u, lines.size());
    const auto& left = lines["channel 1"];
    ASSERT_EQ(4096u, left.size());
    EXPECT_NEAR(f, left[bin - 1].first, 1e-6);
    EXPECT_NEAR(20 * std::log10(0.25), left[bin - 1].second, 0.01);
    EXPECT_LT(left[4 * bin].second, -100);  // far from the tone: nothing
    for (auto& p : lines["channel 2"]) ASSERT_LT(p.second, -200);
    for (const std::string& file : {wav, png, csv}) std::remove(file.c_str());
}

TEST(CliPlot, BadRequestsGiveAMessageAndNoChart) {
    const std::string png = tempPath("never.png");
    struct Case {
        std::string args, message;
    } cases[] = {
        {"plot wobble --out " + png, "unknown plot kind 'wobble'"},
        {"plot response --set Loudness=1 --out " + png, "unknown control 'Loudness'"},
        {"plot response --sweep Nope=0,1 --out " + png, "unknown control 'Nope'"},
        {"plot response --sweep Bass=0,1.5 --out " + png, "outside 0 to 1"},
        {"plot response --sweep Bass=-0.1 --out " + png, "outside 0 to 1"},
        {"plot curve --out /nonexistent-dir/chart.png", "cannot write /nonexistent-dir/chart.png"},
        {"plot response --width 5 --out " + png, "bad width"},
        {"plot curve --in x.wav --out " + png, "--in goes with plot spectrum only"},
        {"plot response", "plot needs --out"},
    };
    for (const Case& c : cases) {
        auto r = run(kelmTool() + " " + c.args);
        EXPECT_NE(0, r.status) << c.args;
        EXPECT_NE(std::string::npos, r.output.find(c.message)) << c.args << "\n" << r.output;
        struct stat st;
        EXPECT_NE(0, stat(png.c_str(), &st)) << c.args;
    }
}
