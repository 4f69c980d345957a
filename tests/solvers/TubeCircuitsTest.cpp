// The multi-tube circuits of examples/ against ngspice running the same circuits with the
// same tube equations as behavioural sources. The references (operating point, and the last
// two periods of a 1 kHz sine at three levels) are stored in tests/data/<circuit>/ beside the
// script that made them; the examples run here at 192 kHz, the references' step.
#include <cmath>
#include <fstream>
#include <map>

#include "circuit/Circuit.h"
#include "circuit/MNAContext.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const size_t kBlock = 480;

struct Reference {
    double rate = 0;
    size_t frames = 0;
    std::vector<std::pair<std::string, double>> op;  // node, volts
    struct Wave {
        std::string node;
        size_t first = 0;  // index of the first stored sample in the run
        std::vector<double> samples;
    };
    std::map<double, std::vector<Wave>> waves;  // by input level (V peak), the outputs in order
};

Reference readReference(const std::string& circuit) {
    Reference r;
    std::ifstream in(sourcePath("tests/data/" + circuit + "/reference.txt"));
    EXPECT_TRUE(in.good()) << circuit;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line);
        std::string key;
        s >> key;
        if (key == "rate") {
            s >> r.rate;
        } else if (key == "frames") {
            s >> r.frames;
        } else if (key == "op") {
            std::pair<std::string, double> p;
            s >> p.first >> p.second;
            r.op.push_back(p);
        } else if (key == "wave") {
            double level;
            size_t count;
            Reference::Wave w;
            s >> level >> w.node >> w.first >> count;
            w.samples.resize(count);
            for (double& v : w.samples) s >> v;
            EXPECT_FALSE(s.fail()) << circuit << " " << w.node;
            r.waves[level].push_back(w);
        }
    }
    return r;
}

// The example's node voltages at the start of a run: its operating point.
std::vector<double> operatingPoint(const std::string& doc, const std::string& graph, const Reference& ref) {
    auto d = makeDriver(doc, static_cast<float>(ref.rate), kBlock);
    auto& ctx = *dynamic_cast<Circuit&>(d->getGraph(graph)).getMNAContext();
    std::vector<double> v;
    for (auto& node : ref.op) v.push_back(ctx.solution()[ctx.nodeIndex(node.first)]);
    return v;
}

// The example's outputs for a 1 kHz sine of the given peak from the start of the run.
std::vector<std::vector<float>> render(const std::string& doc, const Reference& ref, double level) {
    auto d = makeDriver(doc, static_cast<float>(ref.rate), kBlock);
    std::vector<float> in(kBlock);
    std::vector<std::vector<float>> out;
    for (size_t start = 0; start < ref.frames; start += kBlock) {
        const size_t n = std::min(kBlock, ref.frames - start);
        for (size_t i = 0; i < n; ++i)
            in[i] = static_cast<float>(level * std::sin(2 * M_PI * 1000 * double(start + i) / ref.rate));
        d->process({in.data()}, n);
        const auto& results = d->getResults();
        out.resize(results.size());
        for (size_t k = 0; k < results.size(); ++k) out[k].insert(out[k].end(), results[k], results[k] + n);
    }
    return out;
}

// Runs the example against its reference: the operating point within 0.1 % at every stored
// node, and each output within 1 % of its swing over the stored periods at every level.
void compareWithNgspice(const std::string& circuit, const std::string& graph) {
    const Reference ref = readReference(circuit);
    ASSERT_EQ(192000, ref.rate);
    ASSERT_FALSE(ref.op.empty());
    ASSERT_EQ(3u, ref.waves.size());
    const std::string doc = readText(sourcePath("examples/" + circuit + ".xml"));

    const std::vector<double> op = operatingPoint(doc, graph, ref);
    for (size_t i = 0; i < op.size(); ++i) {
        const double spice = ref.op[i].second;
        std::printf("%s operating point %s: ours %.6f V, ngspice %.6f V (%.4f %%)\n", circuit.c_str(),
                    ref.op[i].first.c_str(), op[i], spice, 100 * std::fabs(op[i] - spice) / std::fabs(spice));
        EXPECT_NEAR(spice, op[i], 1e-3 * std::fabs(spice)) << circuit << " " << ref.op[i].first;
    }

    for (const auto& level : ref.waves) {
        const auto y = render(doc, ref, level.first);
        ASSERT_EQ(level.second.size(), y.size()) << circuit;
        for (size_t k = 0; k < y.size(); ++k) {
            const Reference::Wave& w = level.second[k];
            auto mm = std::minmax_element(w.samples.begin(), w.samples.end());
            const double swing = *mm.second - *mm.first;
            double worst = 0;
            for (size_t i = 0; i < w.samples.size(); ++i) {
                ASSERT_TRUE(std::isfinite(y[k][w.first + i])) << circuit;
                worst = std::max(worst, std::fabs(y[k][w.first + i] - w.samples[i]));
            }
            std::printf("%s %s at %g V: swing %.4f V, largest difference %.5f V (%.3f %% of the swing)\n",
                        circuit.c_str(), w.node.c_str(), level.first, swing, worst, 100 * worst / swing);
            EXPECT_LT(worst, 0.01 * swing) << circuit << " " << w.node << " at " << level.first << " V";
        }
    }
}

} // namespace

TEST(SolversTubeCircuits, TwoStagePreampAgreesWithNgspice) { compareWithNgspice("two-stage-preamp", "Preamp"); }
TEST(SolversTubeCircuits, PhaseInverterAgreesWithNgspice) { compareWithNgspice("phase-inverter", "Inverter"); }
TEST(SolversTubeCircuits, TwelveAT7StageAgreesWithNgspice) { compareWithNgspice("12at7-stage", "Stage"); }
TEST(SolversTubeCircuits, PentodePreampAgreesWithNgspice) { compareWithNgspice("pentode-preamp", "Pentode"); }
TEST(SolversTubeCircuits, CathodeFollowerIntoToneStackAgreesWithNgspice) {
    compareWithNgspice("cathode-follower-tonestack", "ToneDriver");
}
TEST(SolversTubeCircuits, HighGainPreampAgreesWithNgspice) { compareWithNgspice("high-gain-preamp", "Channel"); }
