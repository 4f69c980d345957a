// Import-then-render against ngspice: the netlists of tests/data/netlist run through the
// importer and the engine at the rate of the stored references (make_references.py beside
// them runs ngspice on the same files, trapezoidal rule, a fixed step of one sample).
#include <cmath>
#include <fstream>

#include "circuit/Circuit.h"
#include "circuit/MNAContext.h"
#include "netlist/NetlistImporter.h"
#include "solvers/EngineTypes.h"
#include "solvers/NewtonSolver.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

struct Reference {
    std::string netlist;
    double rate = 0, amplitude = 0, frequency = 0, offset = 0;
    std::vector<std::pair<std::string, float>> controls;
    std::vector<std::pair<std::string, double>> op;
    size_t first = 0;
    std::vector<double> values;
};

Reference readReference(const std::string& name) {
    Reference r;
    std::ifstream f(sourcePath("tests/data/netlist/" + name + ".ref"));
    EXPECT_TRUE(f.good()) << name;
    std::string line;
    while (std::getline(f, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream s(line);
        std::string key;
        s >> key;
        if (key == "netlist") s >> r.netlist;
        else if (key == "rate") s >> r.rate;
        else if (key == "input") s >> r.amplitude >> r.frequency;
        else if (key == "offset") s >> r.offset;
        else if (key == "first") s >> r.first;
        else if (key == "control") {
            std::string c;
            float v;
            s >> c >> v;
            r.controls.push_back({c, v});
        } else if (key == "op") {
            std::string n;
            double v;
            s >> n >> v;
            r.op.push_back({n, v});
        } else
            r.values.push_back(std::stod(key));
    }
    return r;
}

std::string imported(const Reference& r) {
    const std::string path = sourcePath("tests/data/netlist/" + r.netlist);
    NetlistImporter::Options options;
    options.rate = r.rate;
    return NetlistImporter(options).import(readText(path), path).document;
}

std::shared_ptr<Driver> driverFor(const std::string& doc, const Reference& r, int block) {
    registerEngineTypes();
    auto d = std::make_shared<Driver>();
    d->init(doc);
    for (const auto& c : r.controls) d->findControl(c.first)->setValue(c.second);
    d->setSampleRate(static_cast<float>(r.rate));
    d->setMaxBlockSize(block);
    return d;
}

// The output for the reference's sine, from time offset / rate on (ngspice's grid).
std::vector<float> render(const std::string& doc, const Reference& r) {
    const int block = 480;
    auto d = driverFor(doc, r, block);
    const size_t frames = r.first + r.values.size();
    std::vector<float> in(block), out;
    for (size_t i = 0; i < frames; i += block) {
        const size_t n = std::min<size_t>(block, frames - i);
        for (size_t k = 0; k < n; ++k)
            in[k] = static_cast<float>(r.amplitude * std::sin(2 * M_PI * r.frequency * (i + k + r.offset) / r.rate));
        d->process({in.data()}, n);
        out.insert(out.end(), d->getResults()[0], d->getResults()[0] + n);
    }
    return out;
}

// The largest difference over the reference's window as a share of its swing.
double shareOfSwing(const std::vector<float>& y, const Reference& r, const std::string& name) {
    double worst = 0, low = r.values[0], high = r.values[0];
    for (size_t k = 0; k < r.values.size(); ++k) {
        worst = std::max(worst, std::fabs(y[r.first + k] - r.values[k]));
        low = std::min(low, r.values[k]);
        high = std::max(high, r.values[k]);
    }
    std::printf("%s: swing %.4g V, largest difference %.3g V (%.3f%% of the swing)\n", name.c_str(), high - low, worst,
                100 * worst / (high - low));
    return worst / (high - low);
}

// The operating point: the circuit's solution after one sample of silence.
void expectOperatingPoint(const std::string& doc, const Reference& r, const std::string& name) {
    auto d = driverFor(doc, r, 1);
    float zero = 0;
    d->process({&zero}, 1);
    auto* c = dynamic_cast<Circuit*>(&d->getGraph("Circuit"));
    ASSERT_NE(nullptr, c);
    MNAContext& ctx = *c->getMNAContext();
    for (const auto& op : r.op) {
        const int i = ctx.nodeIndex(op.first);
        ASSERT_GE(i, 0) << op.first;
        const double ours = ctx.solution()[i];
        std::printf("%s operating point %s: ours %.6g V, ngspice %.6g V\n", name.c_str(), op.first.c_str(), ours,
                    op.second);
        EXPECT_NEAR(op.second, ours, 1e-3 * std::fabs(op.second) + 1e-5) << name << " " << op.first;
    }
}

void expectAgreement(const std::string& name) {
    const Reference r = readReference(name);
    ASSERT_FALSE(r.values.empty()) << name;
    const std::string doc = imported(r);
    if (!r.op.empty()) expectOperatingPoint(doc, r, name);
    EXPECT_LT(shareOfSwing(render(doc, r), r, name), 0.01) << name;
}

} // namespace

TEST(NetlistNgspice, ToneStackAtThreeFrequenciesAndWithItsKnobsMoved) {
    for (const char* name : {"tonestack-100", "tonestack-1k", "tonestack-6k", "tonestack-knobs"}) expectAgreement(name);
}

TEST(NetlistNgspice, TwoTriodePreampWithKorenSubcircuits) {
    // Small signal with the operating point, then both stages driven into grid current and
    // cut-off with the volume pot moved.
    expectAgreement("preamp-small");
    expectAgreement("preamp-large");
}

TEST(NetlistNgspice, HighGainESourceStageConvergesAndAgrees) {
    const Reference r = readReference("gainstage");
    const std::string doc = imported(r);
    expectOperatingPoint(doc, r, "gainstage");
    EXPECT_LT(shareOfSwing(render(doc, r), r, "gainstage"), 0.01);
    // The same stage under Newton's iteration: the source's gain of 1e5 sits in the matrix,
    // so each sample converges at once.
    std::string newton = doc;
    const std::string linear = "<Solver Type=\"Linear\"/>";
    const std::string nr = "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1.0e-6\" "
                           "AbsoluteTollerance=\"1.0e-6\" MaxIterations=\"20\"/></Solver>";
    for (size_t at; (at = newton.find(linear)) != std::string::npos;) newton.replace(at, linear.size(), nr);
    EXPECT_LT(shareOfSwing(render(newton, r), r, "gainstage under Newton"), 0.01);
    // And under Newton's iteration on the whole matrix in single precision (a fixed-point step
    // first keeps the solve kernels out): the gain of 1e5 sits in the matrix and each sample
    // takes a step or two.
    const std::string general = "MaxIterations=\"20\" FixedPointSteps=\"1\"";
    for (size_t at; (at = newton.find("MaxIterations=\"20\"/>")) != std::string::npos;)
        newton.replace(at, 19, general + "/>");
    EXPECT_LT(shareOfSwing(render(newton, r), r, "gainstage under the general Newton iteration"), 0.01);
    auto d = driverFor(newton, r, 64);
    std::vector<float> x(64, 0.05f);
    d->process({x.data()}, 64);
    auto& circuit = dynamic_cast<Circuit&>(d->getGraph("Circuit"));
    EXPECT_STREQ("general", circuit.kernel().name());
    auto* solver = dynamic_cast<NewtonSolver*>(circuit.getAnalysis()->solver.get());
    ASSERT_NE(nullptr, solver);
    EXPECT_GT(solver->lastIterations(), 0);
    EXPECT_LE(solver->lastIterations(), 3);
}

// The semiconductor and inductor elements from netlists.
TEST(NetlistNgspice, OpAmpOverdriveWithADiodePair) {
    expectAgreement("overdrive-small");
    expectAgreement("overdrive-large");
}

TEST(NetlistNgspice, TwoTransistorFuzz) { expectAgreement("fuzz"); }

TEST(NetlistNgspice, JfetBooster) { expectAgreement("booster"); }

TEST(NetlistNgspice, InductorWah) { expectAgreement("wah"); }
