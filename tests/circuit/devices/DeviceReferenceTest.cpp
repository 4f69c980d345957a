// The semiconductor and winding examples against ngspice running the same circuits with the
// same model cards (tests/data/make_device_references.py made the stored data): the operating
// point, and the output over two periods of a 1 kHz sine at 192 kHz after start-up, sample for
// sample: ngspice steps one sample at a time too, on a grid a fraction of a sample after the
// samples, and the engine's input is the sine on that grid.
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "circuit/Circuit.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const double kRate = 192000;
struct Sine {
    double amplitude = 0;  // V
    size_t first = 0;      // the sample of the first value
    double offset = 0;     // ngspice's grid after the samples, in samples
    std::vector<double> values;
};
struct Reference {
    std::map<std::string, double> op;
    std::vector<Sine> sines;
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
            Sine sine;
            s >> sine.amplitude >> sine.first >> sine.offset;
            double v;
            while (s >> v) sine.values.push_back(v);
            r.sines.push_back(sine);
        }
    }
    return r;
}

Circuit& circuitOf(Driver& d) {
    for (const auto& g : d.getGraphs())
        if (auto* c = dynamic_cast<Circuit*>(g.get())) return *c;
    throw KELMException("no circuit");
}

enum Check { operatingPoint = 1, sines = 2 };

struct Figures {
    double opError = 0;     // the largest difference relative to ngspice's value
    double sineError = 0;   // the largest difference relative to the output swing
};

// The example against its reference; the figures are printed for the record.
Figures compare(const std::string& name, int checks) {
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
            if (checks & operatingPoint) {
                EXPECT_LE(error, 1e-3 * std::fabs(spice) + 1e-6) << name << " node " << node << ": ours " << ours
                                                             << " V, ngspice " << spice << " V";
            }
            if (std::fabs(spice) > 1e-3) fig.opError = std::max(fig.opError, error / std::fabs(spice));
        }
    }
    for (const Sine& sine : ref.sines) {
        const std::vector<double>& spice = sine.values;
        const size_t block = 480;
        auto d = makeDriver(doc, static_cast<float>(kRate), block);
        const size_t frames = sine.first + spice.size();
        std::vector<float> in(block), out;
        for (size_t i = 0; i < frames; i += block) {
            const size_t count = std::min(block, frames - i);
            for (size_t n = 0; n < count; ++n) {
                const double t = (static_cast<double>(i + n) + sine.offset) / kRate;
                in[n] = static_cast<float>(sine.amplitude * std::sin(2 * M_PI * 1000 * t));
            }
            d->process({in.data()}, count);
            out.insert(out.end(), d->getResults()[0], d->getResults()[0] + count);
        }
        double lo = 1e300, hi = -1e300, worst = 0;
        for (size_t k = 0; k < spice.size(); ++k) {
            lo = std::min(lo, spice[k]);
            hi = std::max(hi, spice[k]);
            worst = std::max(worst, std::fabs(out[sine.first + k] - spice[k]));
        }
        const double swing = hi - lo;
        std::printf("%s at %g V: swing %.4g V, largest difference %.3g V (%.3f%% of the swing)\n", name.c_str(),
                    sine.amplitude, swing, worst, 100 * worst / swing);
        if (checks & sines) {
            EXPECT_LT(worst, 0.01 * swing) << name << " at " << sine.amplitude << " V";
        }
        fig.sineError = std::max(fig.sineError, worst / swing);
    }
    std::printf("%s: operating point within %.2g%%, sines within %.3g%% of the swing\n", name.c_str(),
                100 * fig.opError, 100 * fig.sineError);
    return fig;
}

} // namespace

TEST(CircuitDeviceReference, DiodeClipper) { compare("diode-clipper", operatingPoint | sines); }
TEST(CircuitDeviceReference, OpAmpOverdrive) { compare("opamp-overdrive", operatingPoint | sines); }
TEST(CircuitDeviceReference, JfetBooster) { compare("jfet-booster", operatingPoint | sines); }
TEST(CircuitDeviceReference, TransformerStage) { compare("transformer-stage", operatingPoint | sines); }
TEST(CircuitDeviceReference, InductorWahSines) { compare("wah", sines); }

TEST(CircuitDeviceReference, OperatingPointsThroughSmallSeriesResistances) {
    // The operating point is solved in double: a device's series resistance of an ohm or less
    // (the 2N5089's Rb, the BC109C's Rb, Re and Rc) on an internal node puts 0.1 to 4 S on the
    // diagonal beside the 1e-5 to 1e-6 S of the bias network.
    compare("wah", operatingPoint);
    compare("fuzz-face-silicon", operatingPoint);
}

// The fuzzes' sines are square waves that cross most of their swing within a sample: an edge
// moved by a tenth of a sample differs by a tenth of the swing, so these hold the input's timing
// to ngspice's grid as well as the devices.
TEST(CircuitDeviceReference, GermaniumFuzz) { compare("fuzz-face", operatingPoint | sines); }
TEST(CircuitDeviceReference, SiliconFuzzSines) { compare("fuzz-face-silicon", sines); }
