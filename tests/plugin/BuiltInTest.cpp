// The built-in preamp: its description, its tables and the effect's behaviour.
#include <chrono>
#include <cmath>
#include <complex>

#include "plugin/core/BuiltInData.h"
#include "plugin/core/TableGenerator.h"
#include "tests/TestUtil.h"
#include "tests/plugin/CoreRender.h"

using namespace kelm;
using namespace kelm::test;

namespace {

double entry(const BuiltInTable& t, double vin) {
    const int i = static_cast<int>(std::lround((vin - std::stod(t.vinMin)) / std::stod(t.deltaV)));
    return t.data[i];
}

struct Render {
    std::vector<float> left, right;
};

// Renders `seconds` of a sine through a fresh effect set up as a host would.
Render render(const std::vector<std::pair<std::string, float>>& params, double amplitude, double freq, double seconds) {
    std::vector<float> x(static_cast<size_t>(seconds * 48000));
    for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * freq * i / 48000));
    const auto y = renderCore(x, x, named(params), 512);
    return {y[0], y[1]};
}

// Level in dB of the component at freq over the last second.
double levelDb(const std::vector<float>& y, double freq) {
    std::complex<double> s = 0;
    const size_t n = 48000, start = y.size() - n;
    for (size_t k = 0; k < n; ++k) s += static_cast<double>(y[start + k]) * std::polar(1.0, -2 * M_PI * freq * k / 48000);
    return 20 * std::log10(2 * std::abs(s) / n + 1e-30);
}

bool allFinite(const std::vector<float>& y) {
    for (float v : y)
        if (!std::isfinite(v)) return false;
    return true;
}

} // namespace

TEST(PluginBuiltIn, TablesHoldTheCheckRows) {
    const auto first = BuiltInData::firstStageCurve(), second = BuiltInData::secondStageCurve();
    const auto iin = BuiltInData::secondStageGridCurrent(), grid = BuiltInData::gridResistance();
    ASSERT_EQ(3001, first.size);
    ASSERT_EQ(9001, second.size);
    ASSERT_EQ(104, BuiltInData::firstStageAdmittance().size);
    struct Row {
        double in, first, second, iin, grid;
    } rows[] = {{-8, NAN, 155.0, 0, 1e10},
                {-2, 154.92032, 153.16261, 0, 1e10},
                {-1, 147.20128, 134.03806, 0, 1e10},
                {0, 102.02517, 102.02516, 0, 1e10},
                {1, 71.799110, 67.239105, 2.74752e-5, 36396.516},
                {2, 62.518929, 39.684650, 2.17675e-4, 9187.998},
                {4, 51.719624, 17.771481, 1.12687e-3, 3549.6584},
                {10, NAN, 14.781281, 5.24289e-3, 1907.3455}};
    for (const Row& r : rows) {
        if (!std::isnan(r.first)) {
            EXPECT_NEAR(r.first, entry(first, r.in), 4e-5) << r.in;
        }
        EXPECT_NEAR(r.second, entry(second, r.in), 4e-5) << r.in;
        EXPECT_NEAR(r.iin, entry(iin, r.in), 2e-9) << r.in;
        EXPECT_NEAR(r.grid, entry(grid, r.in), 1e-5 * r.grid) << r.in;
    }
    const auto adm = BuiltInData::firstStageAdmittance(), res = BuiltInData::plateResistance();
    struct PlateRow {
        double vp, admittance, resistance;
    } plates[] = {{52, 3.28215e-5, 30467.861}, {102, 2.7336e-5, 36581.746}, {154, 1.0808e-5, NAN}, {155, 1.00001e-5, 99998.859}};
    for (const PlateRow& p : plates) {
        EXPECT_NEAR(p.admittance, entry(adm, p.vp), 1e-5 * p.admittance) << p.vp;
        if (!std::isnan(p.resistance)) {
            EXPECT_NEAR(p.resistance, entry(res, p.vp), 1e-5 * p.resistance) << p.vp;
        }
    }
    // Both curves pass through the quiescent point of the same stage.
    EXPECT_NEAR(first.data[1000], second.data[4000], 1e-5);
    // The second-stage curve dips to its minimum at 7.388 V, lifted by grid current.
    int lowest = 0;
    for (int i = 0; i < second.size; ++i)
        if (second.data[i] < second.data[lowest]) lowest = i;
    EXPECT_NEAR(7.388, -8 + lowest * 0.002, 1e-9);
    EXPECT_NEAR(14.098212, second.data[lowest], 4e-5);
}

TEST(PluginBuiltIn, CompiledTablesEqualTheModelRunNow) {
    const auto t = TableGenerator::generate();
    const auto second = BuiltInData::secondStageCurve();
    for (int i = 0; i < second.size; ++i) ASSERT_EQ(t.secondStageCurve[i], second.data[i]) << i;
    const auto first = BuiltInData::firstStageCurve();
    for (int i = 0; i < first.size; ++i) ASSERT_EQ(t.firstStageCurve[i], first.data[i]) << i;
    EXPECT_NEAR(0.635698, t.quiescentCathode, 1e-6);
}

TEST(PluginBuiltIn, DocumentAndEffectSetUp) {
    const auto start = std::chrono::steady_clock::now();
    KelmEffect effect;
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    std::printf("building the effect took %.2f ms\n", ms);
    Driver& d = effect.getDriver();
    EXPECT_EQ(23u, d.getGraphs().size());
    EXPECT_EQ(2, d.getNumberOfOutputs());
    ASSERT_EQ(9, effect.numberOfParameters());  // names and texts: PluginVst2Host, PluginDemandingHost
    EXPECT_FALSE(effect.isMono());  // Stereo starts at 0
    EXPECT_EQ(std::string::npos, BuiltInData::document().find("VinMin=\"-2\""));  // V1's range comes with its table
    EXPECT_EQ(0.0f, effect.getParameter(42));
    effect.setParameter(42, 1.0f);  // ignored
}

TEST(PluginBuiltIn, SineIsFiniteAndChannelsAgreeWhenStereoIsOff) {
    auto r = render({}, 0.1, 1000, 1.5);
    ASSERT_TRUE(allFinite(r.left));
    ASSERT_TRUE(allFinite(r.right));
    EXPECT_GT(levelDb(r.left, 1000), -40);
    for (size_t i = 0; i < r.left.size(); ++i) ASSERT_NEAR(r.left[i], r.right[i], 1e-6) << i;
    // Stereo switched on: the right output repeats the left one exactly.
    auto same = render({{"Stereo", 1.0f}}, 0.1, 1000, 1.0);
    for (size_t i = 0; i < same.left.size(); ++i) ASSERT_EQ(same.left[i], same.right[i]);
}

TEST(PluginBuiltIn, ToneControlsShiftTheSpectrum) {
    auto level = [](std::vector<std::pair<std::string, float>> p, double f) { return levelDb(render(p, 0.05, f, 1.5).left, f); };
    // A wiper towards end b turns the band up.
    EXPECT_GT(level({{"Bass", 1.0f}}, 100) - level({{"Bass", 0.0f}}, 100), 10.0);
    EXPECT_GT(level({{"Treble", 1.0f}}, 8000) - level({{"Treble", 0.0f}}, 8000), 10.0);
    EXPECT_LT(std::fabs(level({{"Bass", 0.0f}}, 8000) - level({{"Bass", 1.0f}}, 8000)), 3.0);
    // EQ_Position moves the tone stack in front of the tubes: the nonlinearity then sees the
    // boosted bass, so the outputs differ while both stay finite.
    auto post = render({{"Bass", 0.0f}, {"Gain", 1.0f}}, 0.3, 100, 1.0);
    auto pre = render({{"Bass", 0.0f}, {"Gain", 1.0f}, {"EQ_Position", 1.0f}}, 0.3, 100, 1.0);
    ASSERT_TRUE(allFinite(pre.left));
    double diff = 0;
    for (size_t i = 24000; i < post.left.size(); ++i) diff = std::max(diff, std::fabs(static_cast<double>(post.left[i] - pre.left[i])));
    EXPECT_GT(diff, 0.01);
    EXPECT_GT(levelDb(post.left, 100), -60);
    EXPECT_GT(levelDb(pre.left, 100), -60);
}

TEST(PluginBuiltIn, CircuitAndTablePathsSoundAlike) {
    for (float oversampling : {0.0f, 1.0f}) {
        // 0.3 V at 1 kHz drives the second stage into audible distortion.
        auto circuit = render({{"CPU", 0.0f}, {"Oversampling", oversampling}}, 0.3, 1000, 1.5);
        auto table = render({{"CPU", 1.0f}, {"Oversampling", oversampling}}, 0.3, 1000, 1.5);
        ASSERT_TRUE(allFinite(circuit.left));
        const double c1 = levelDb(circuit.left, 1000), t1 = levelDb(table.left, 1000);
        const double c2 = levelDb(circuit.left, 2000) - c1, t2 = levelDb(table.left, 2000) - t1;
        const double c3 = levelDb(circuit.left, 3000) - c1, t3 = levelDb(table.left, 3000) - t1;
        std::printf("oversampling %.0f: fundamental circuit %.2f dB, table %.2f dB; 2nd harmonic %.1f / %.1f dBc; "
                    "3rd %.1f / %.1f dBc\n", oversampling, c1, t1, c2, t2, c3, t3);
        EXPECT_NEAR(c1, t1, 1.5);
        EXPECT_NEAR(c2, t2, 6.0);
        EXPECT_NEAR(c3, t3, 6.0);
        EXPECT_GT(c2, -40.0);  // both really distort
        EXPECT_GT(t3, -40.0);
    }
}

TEST(PluginBuiltIn, OversamplingChangesDuringARender) {
    KelmEffect effect;
    effect.setSampleRate(44100);
    effect.setBlockSize(256);
    effect.resume();
    const int os = effect.parameterIndex("Oversampling"), cpu = effect.parameterIndex("CPU");
    std::vector<float> in(256), l(256), r(256);
    long n = 0;
    const float steps[] = {0.5f, 1.0f, 0.0f, 1.0f, 0.5f, 0.0f};
    for (float cpuValue : {0.0f, 1.0f}) {
        effect.setParameter(cpu, cpuValue);
        for (float v : steps) {
            effect.setParameter(os, v);
            for (int b = 0; b < 20; ++b) {
                for (float& x : in) x = 0.2f * std::sin(2 * M_PI * 440 * (n++) / 44100.0);
                float* ins[2] = {in.data(), in.data()};
                float* outs[2] = {l.data(), r.data()};
                ASSERT_NO_THROW(effect.process(ins, outs, 256));
                for (int i = 0; i < 256; ++i) ASSERT_TRUE(std::isfinite(l[i]) && std::isfinite(r[i]));
            }
        }
    }
}
