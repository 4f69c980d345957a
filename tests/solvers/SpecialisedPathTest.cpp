// The specialised per-sample paths of the circuits (small-order Newton with the
// sources taken once per sample, restamping only a SourceAdmittance's stamp)
// against the general path on the same input: the same samples within the
// solver's tolerance.
#include <algorithm>
#include <cmath>

#include "circuit/Circuit.h"
#include "plugin/core/KelmEffect.h"
#include "solvers/NewtonSolver.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

NewtonSolver* newtonOf(Driver& d, const char* graph) {
    auto* c = dynamic_cast<Circuit*>(&d.getGraph(graph));
    return c ? dynamic_cast<NewtonSolver*>(c->getAnalysis()->solver.get()) : nullptr;
}

struct Difference {
    double worst = 0, swing = 0;
};

Difference compare(const std::vector<float>& a, const std::vector<float>& b) {
    Difference d;
    for (size_t i = 0; i < a.size(); ++i) d.worst = std::max(d.worst, std::fabs(static_cast<double>(a[i]) - b[i]));
    auto mm = std::minmax_element(b.begin(), b.end());
    d.swing = *mm.second - *mm.first;
    return d;
}

} // namespace

TEST(SolversSpecialisedPath, TriodeStageGivesTheSamplesOfTheGeneralPath) {
    const int block = 256;
    for (double amplitude : {0.1, 4.0}) {
        std::vector<float> out[2];
        for (int general = 0; general < 2; ++general) {
            auto d = makeDriver(readText(sourcePath("examples/triode-stage.xml")), 192000, block);
            NewtonSolver* newton = newtonOf(*d, "V1MNA");
            ASSERT_NE(nullptr, newton);
            newton->useGeneralPath(general == 1);
            std::vector<float> in(block);
            for (size_t n = 0; n < 38400; n += block) {  // 0.2 s of 1 kHz, starting with a step
                for (int i = 0; i < block; ++i)
                    in[i] = static_cast<float>(amplitude * (0.5 + std::sin(2 * 3.14159265358979 * 1000 * (n + i) / 192000.0)));
                d->process({in.data()}, block);
                out[general].insert(out[general].end(), d->getResults()[0], d->getResults()[0] + block);
            }
            EXPECT_EQ(general == 0, newton->specialised());
        }
        Difference diff = compare(out[0], out[1]);
        std::printf("amplitude %.1f V: swing %.3f V, worst difference %.3g V\n", amplitude, diff.swing, diff.worst);
        EXPECT_GT(diff.swing, amplitude * 10);  // the stage amplifies
        EXPECT_LE(diff.worst, 1e-5 * diff.swing);
        // Driven into grid current from the first sample, the plate saturates a few
        // volts above the cathode; it never goes below ground.
        for (const auto& o : out) EXPECT_GE(*std::min_element(o.begin(), o.end()), 0.0f);
    }
}

TEST(SolversSpecialisedPath, PreampCircuitPathGivesTheSamplesOfTheGeneralPath) {
    const int block = 512;
    std::vector<float> out[2];
    for (int general = 0; general < 2; ++general) {
        KelmEffect effect;
        effect.setParameter(effect.parameterIndex("CPU"), 0.0f);
        effect.setParameter(effect.parameterIndex("Oversampling"), 1.0f);
        effect.setParameter(effect.parameterIndex("Gain"), 0.9f);
        effect.setSampleRate(48000);
        effect.setBlockSize(block);
        for (const char* graph : {"Triodes", "TriodesS"}) {
            NewtonSolver* newton = newtonOf(effect.getDriver(), graph);
            ASSERT_NE(nullptr, newton) << graph;
            newton->useGeneralPath(general == 1);
        }
        effect.resume();
        std::vector<float> l(block), r(block), outL(block), outR(block);
        for (size_t n = 0; n < 9600; n += block) {
            for (int i = 0; i < block; ++i) {
                l[i] = static_cast<float>(0.5 * std::sin(2 * 3.14159265358979 * 220 * (n + i) / 48000.0));
                r[i] = static_cast<float>(0.3 * std::sin(2 * 3.14159265358979 * 330 * (n + i) / 48000.0));
            }
            float* in[2] = {l.data(), r.data()};
            float* o[2] = {outL.data(), outR.data()};
            effect.process(in, o, block);
            for (int i = 0; i < block; ++i) {
                out[general].push_back(outL[i]);
                out[general].push_back(outR[i]);
            }
        }
        EXPECT_EQ(general == 0, newtonOf(effect.getDriver(), "Triodes")->specialised());
    }
    Difference diff = compare(out[0], out[1]);
    std::printf("preamp circuit path: swing %.3f, worst difference %.3g\n", diff.swing, diff.worst);
    EXPECT_GT(diff.swing, 0.1);
    // The Newton tolerance of graph Triodes is 5e-3 relative. The two paths take the step
    // with different arithmetic (cofactors in double, a pivoting factorisation in float), so
    // each stops at its own point within that tolerance: about 1e-4 of the swing apart. A
    // wrong step would not converge to within 1e-3.
    EXPECT_LE(diff.worst, 1e-3 * diff.swing);
}
