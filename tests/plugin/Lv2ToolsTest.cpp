// The built LV2 bundle through Debian's LV2 tools, pointed at the build tree with LV2_PATH.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "plugin/core/KelmEffect.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const std::string kBundle = KELM_LV2_BUNDLE;

// The bundle's folder first, then the system's LV2 vocabulary bundles; never ~/.lv2.
std::string lv2Env() {
    const std::string dir = kBundle.substr(0, kBundle.rfind('/'));
    return "LV2_PATH=" + dir + ":/usr/lib/lv2 ";
}

struct PortInfo {
    int index = -1;
    std::string symbol, name;
    double minimum = NAN, maximum = NAN, defaultValue = NAN;
    std::vector<std::string> scalePoints;
    bool control = false;
};

// Reads lv2info's port sections ("Port N:", "Symbol:", "Minimum:", scale point lines).
std::vector<PortInfo> parsePorts(const std::string& text) {
    std::vector<PortInfo> ports;
    std::istringstream in(text);
    std::string line;
    bool inScalePoints = false;
    while (std::getline(in, line)) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos) continue;
        const std::string t = line.substr(start);
        auto value = [&](const char* key) { return t.substr(std::string(key).size()); };
        if (t.rfind("Port ", 0) == 0 && t.back() == ':') {
            ports.emplace_back();
            ports.back().index = std::stoi(t.substr(5));
            inScalePoints = false;
            continue;
        }
        if (ports.empty()) continue;
        PortInfo& p = ports.back();
        if (t.rfind("Type:", 0) == 0) p.control = false;
        if (t.find("#ControlPort") != std::string::npos) p.control = true;
        if (t.rfind("Symbol:", 0) == 0) p.symbol = value("Symbol:").substr(value("Symbol:").find_first_not_of(' '));
        if (t.rfind("Name:", 0) == 0) p.name = value("Name:").substr(value("Name:").find_first_not_of(' '));
        if (t.rfind("Minimum:", 0) == 0) p.minimum = std::stod(value("Minimum:"));
        if (t.rfind("Maximum:", 0) == 0) p.maximum = std::stod(value("Maximum:"));
        if (t.rfind("Default:", 0) == 0) p.defaultValue = std::stod(value("Default:"));
        if (t.rfind("Scale Points:", 0) == 0) {
            inScalePoints = true;
            continue;
        }
        if (inScalePoints && t.find(" = ") != std::string::npos) p.scalePoints.push_back(t);
        else if (t.find(':') != std::string::npos) inScalePoints = false;
    }
    return ports;
}

} // namespace

TEST(Lv2Tools, BundleValidatesAndExportsOnlyItsEntryPoint) {
    auto r = run("lv2_validate " + kBundle + "/manifest.ttl " + kBundle + "/kelm.ttl " + kBundle + "/circuit.ttl");
    EXPECT_NE(std::string::npos, r.output.find("Found 0 errors")) << r.output;
    EXPECT_EQ(std::string::npos, r.output.find("error:")) << r.output;
    KELM_SKIP_IN_SANITIZED_BUILD();
    EXPECT_EQ(std::vector<std::string>{"lv2_descriptor"}, exportedSymbols(kBundle + "/kelm.so"));
}

TEST(Lv2Tools, InfoListsTheNineControlsWithRangesDefaultsAndLabels) {
    KELM_SKIP_IN_SANITIZED_BUILD();
    auto r = run(lv2Env() + "lv2info urn:kelm:preamp");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("Kelm Preamp")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("Amplifier")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("hardRTCapable")) << r.output;
    const std::vector<PortInfo> ports = parsePorts(r.output);
    ASSERT_EQ(13u, ports.size()) << r.output;
    // The effect's own parameter list is the reference: names, order and starting values.
    KelmEffect effect;
    const char* symbols[] = {"input", "gain", "vol", "oversampling", "bass", "treble", "eq_position", "stereo", "cpu"};
    for (int i = 0; i < 9; ++i) {
        const PortInfo& p = ports[4 + i];
        EXPECT_EQ(4 + i, p.index);
        EXPECT_TRUE(p.control) << p.symbol;
        EXPECT_EQ(symbols[i], p.symbol);
        EXPECT_EQ(effect.parameterName(i), p.name);
        EXPECT_EQ(0.0, p.minimum) << p.symbol;
        EXPECT_EQ(1.0, p.maximum) << p.symbol;
        EXPECT_NEAR(effect.getParameter(i), p.defaultValue, 1e-6) << p.symbol;
    }
    EXPECT_EQ(3u, ports[7].scalePoints.size()) << r.output;
    for (int i : {10, 11, 12}) EXPECT_EQ(2u, ports[i].scalePoints.size()) << ports[i].symbol;
    for (int i : {4, 5, 6, 8, 9}) EXPECT_TRUE(ports[i].scalePoints.empty()) << ports[i].symbol;
    for (const char* label : {"1x", "2x", "4x", "Post", "Pre", "Stereo", "Mono", "Circuit", "Table"})
        EXPECT_NE(std::string::npos, r.output.find(std::string("\"") + label + "\"")) << label;
}

TEST(Lv2Tools, ApplyEqualsTheToolsRenderOfTheSameInputAndValues) {
    KELM_SKIP_IN_SANITIZED_BUILD();
    const int rate = 48000;
    const size_t frames = rate;
    std::vector<float> left = noise(frames, 21), right = noise(frames, 22), interleaved;
    for (size_t i = 0; i < frames; ++i) {
        interleaved.push_back(0.5f * left[i] * std::sin(0.0005f * i));
        interleaved.push_back(0.3f * right[i]);
    }
    const std::string in = tempPath("lv2in.wav"), outLv2 = tempPath("lv2out.wav"), outCli = tempPath("cliout.wav");
    writeWav(in, interleaved, 2, rate);
    struct Case {
        std::vector<std::pair<std::string, float>> values;
    } cases[] = {
        {{{"Input", 0.7f}, {"Gain", 0.8f}, {"Vol", 0.4f}, {"Oversampling", 0.5f}, {"Bass", 0.2f}, {"Treble", 0.9f},
          {"EQ_Position", 1.0f}, {"Stereo", 0.0f}, {"CPU", 0.0f}}},
        {{{"Gain", 0.3f}, {"Stereo", 1.0f}, {"Oversampling", 1.0f}}},
    };
    for (const Case& c : cases) {
        std::string lv2Args, cliArgs, what;
        for (auto& v : c.values) {
            std::string symbol = v.first;
            std::transform(symbol.begin(), symbol.end(), symbol.begin(), ::tolower);
            lv2Args += " -c " + symbol + " " + std::to_string(v.second);
            cliArgs += " --set " + v.first + "=" + std::to_string(v.second);
            what += v.first + "=" + std::to_string(v.second) + " ";
        }
        auto r = run(lv2Env() + "lv2apply -i " + in + " -o " + outLv2 + lv2Args + " urn:kelm:preamp");
        ASSERT_EQ(0, r.status) << r.output;
        r = run(std::string(KELM_CLI_PATH) + " render --in " + in + " --out " + outCli + cliArgs);
        ASSERT_EQ(0, r.status) << r.output;
        int channels = 0, outRate = 0;
        const std::vector<float> a = readWav(outLv2, &channels, &outRate), b = readWav(outCli);
        ASSERT_EQ(2, channels);
        ASSERT_EQ(rate, outRate);
        ASSERT_EQ(b.size(), a.size());
        double peak = 0, worst = 0;
        for (size_t i = 0; i < a.size(); ++i) {
            peak = std::max(peak, std::fabs(static_cast<double>(b[i])));
            worst = std::max(worst, std::fabs(static_cast<double>(a[i]) - b[i]));
        }
        std::printf("lv2apply against kelm render, %s: largest difference %.3g at a peak of %.3g\n", what.c_str(), worst,
                    peak);
        EXPECT_GT(peak, 1e-3) << what;
        EXPECT_LE(worst, 1e-6 * peak) << what << "peak " << peak;
    }
    for (const std::string& f : {in, outLv2, outCli}) std::remove(f.c_str());
}
