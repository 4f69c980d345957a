// The semiconductor and winding examples against ngspice running the same circuits with the
// same model cards (tests/data/make_device_references.py made the stored data): the operating
// point, and the output over two periods of a 1 kHz sine at 192 kHz after start-up.
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "circuit/Circuit.h"
#include "solvers/NewtonSolver.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const double kRate = 192000;
const size_t kSettle = 48000;  // 0.25 s, as the script's SETTLE

struct Reference {
    std::map<std::string, double> op;
    std::vector<std::pair<double, std::vector<double>>> sines;  // amplitude, output samples
};

Reference readReference(const std::string& name) {
    Reference r;
    std::ifstream in(sourcePath("tests/data/devices/" + name + ".txt"));
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line);
        std::string kind;
        s >> kind;
        if (kind == "op") {
            std::string node;
            double v;
            s >> node >> v;
            r.op[node] = v;
        } else if (kind == "tran") {
            double a, v;
            s >> a;
            std::vector<double> y;
            while (s >> v) y.push_back(v);
            r.sines.emplace_back(a, y);
        }
    }
    return r;
}

Circuit& circuitOf(Driver& d) {
    for (const auto& g : d.getGraphs())
        if (auto* c = dynamic_cast<Circuit*>(g.get())) return *c;
    throw KELMException("no circuit");
}

struct Figures {
    double opError = 0;     // the largest difference relative to ngspice's value
    double sineError = 0;   // the largest difference relative to the output swing
    double iterations = 0;  // per sample, over the sines
};

// The example against its reference; the figures are printed for the record.
Figures compare(const std::string& name) {
    const Reference ref = readReference(name);
    EXPECT_FALSE(ref.op.empty()) << name;
    EXPECT_FALSE(ref.sines.empty()) << name;
    const std::string doc = readText(sourcePath("examples/" + name + ".xml"));
    Figures fig;
    {
        auto d = makeDriver(doc, static_cast<float>(kRate), 480);
        MNAContext& ctx = *circuitOf(*d).getMNAContext();
        for (const auto& [node, spice] : ref.op) {
            const double ours = ctx.solution()[ctx.nodeIndex(node)];
            const double error = std::fabs(ours - spice);
            EXPECT_LE(error, 1e-3 * std::fabs(spice) + 1e-6) << name << " node " << node << ": ours " << ours
                                                             << " V, ngspice " << spice << " V";
            if (std::fabs(spice) > 1e-3) fig.opError = std::max(fig.opError, error / std::fabs(spice));
        }
    }
    long solves = 0, iterations = 0;
    for (const auto& [amplitude, spice] : ref.sines) {
        const size_t block = 480;
        auto d = makeDriver(doc, static_cast<float>(kRate), block);
        const size_t frames = kSettle + spice.size();
        std::vector<float> in(block), out;
        for (size_t i = 0; i < frames; i += block) {
            const size_t count = std::min(block, frames - i);
            for (size_t n = 0; n < count; ++n)
                in[n] = static_cast<float>(amplitude * std::sin(2 * M_PI * 1000 * static_cast<double>(i + n) / kRate));
            d->process({in.data()}, count);
            out.insert(out.end(), d->getResults()[0], d->getResults()[0] + count);
        }
        auto* newton = dynamic_cast<NewtonSolver*>(circuitOf(*d).getAnalysis()->solver.get());
        solves += newton->solveCount();
        iterations += newton->iterationCount();
        double lo = 1e300, hi = -1e300, worst = 0;
        for (size_t k = 0; k < spice.size(); ++k) {
            lo = std::min(lo, spice[k]);
            hi = std::max(hi, spice[k]);
            worst = std::max(worst, std::fabs(out[kSettle + k] - spice[k]));
        }
        const double swing = hi - lo;
        std::printf("%s at %g V: swing %.4g V, largest difference %.3g V (%.3f%% of the swing)\n", name.c_str(),
                    amplitude, swing, worst, 100 * worst / swing);
        EXPECT_LT(worst, 0.01 * swing) << name << " at " << amplitude << " V";
        fig.sineError = std::max(fig.sineError, worst / swing);
    }
    fig.iterations = static_cast<double>(iterations) / std::max(1L, solves);
    std::printf("%s: operating point within %.2g%%, sines within %.3g%% of the swing, %.2f iterations per sample\n",
                name.c_str(), 100 * fig.opError, 100 * fig.sineError, fig.iterations);
    return fig;
}

} // namespace

TEST(CircuitDeviceReference, DiodeClipper) { compare("diode-clipper"); }
TEST(CircuitDeviceReference, OpAmpOverdrive) { compare("opamp-overdrive"); }
TEST(CircuitDeviceReference, GermaniumFuzz) { compare("fuzz-face"); }
TEST(CircuitDeviceReference, SiliconFuzz) { compare("fuzz-face-silicon"); }
TEST(CircuitDeviceReference, JfetBooster) { compare("jfet-booster"); }
TEST(CircuitDeviceReference, InductorWah) { compare("wah"); }
TEST(CircuitDeviceReference, TransformerStage) { compare("transformer-stage"); }
