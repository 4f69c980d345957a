// The specialised per-sample paths of the circuits (small-order Newton with the
// sources taken once per sample, restamping only a SourceAdmittance's stamp)
// against the general path on the same input: the same samples within the
// solver's tolerance; and the Newton solver's own sample loop against solve().
#include <algorithm>
#include <cmath>

#include "circuit/Circuit.h"
#include "circuit/MNAContext.h"
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

// Renders 0.2 s of a 1 kHz sine on a step through the 12AX7 stage, with the Newton step
// on the triode's ports, on all unknowns of the small system, or on the general path.
enum class Path { ports, small, general };

std::vector<float> renderTriodeStage(double amplitude, Path path, const char* tolerance = nullptr) {
    const int block = 256;
    std::string doc = readText(sourcePath("examples/triode-stage.xml"));
    if (tolerance) {
        const std::string from = "RelativeTollerance=\"1.0e-5\"";
        doc.replace(doc.find(from), from.size(), std::string("RelativeTollerance=\"") + tolerance + "\"");
    }
    auto d = makeDriver(doc, 192000, block);
    NewtonSolver* newton = newtonOf(*d, "V1MNA");
    EXPECT_NE(nullptr, newton);
    if (!newton) return {};
    newton->usePortForm(path == Path::ports);
    newton->useGeneralPath(path == Path::general);
    std::vector<float> in(block), out;
    for (size_t n = 0; n < 38400; n += block) {
        for (int i = 0; i < block; ++i)
            in[i] = static_cast<float>(amplitude * (0.5 + std::sin(2 * 3.14159265358979 * 1000 * (n + i) / 192000.0)));
        d->process({in.data()}, block);
        out.insert(out.end(), d->getResults()[0], d->getResults()[0] + block);
    }
    EXPECT_EQ(path != Path::general, newton->specialised());
    EXPECT_EQ(path == Path::ports, newton->portForm());
    return out;
}

} // namespace

TEST(SolversSpecialisedPath, TriodeStageGivesTheSamplesOfTheGeneralPath) {
    for (double amplitude : {0.1, 4.0}) {
        const std::vector<float> ports = renderTriodeStage(amplitude, Path::ports);
        const std::vector<float> small = renderTriodeStage(amplitude, Path::small);
        const std::vector<float> general = renderTriodeStage(amplitude, Path::general);
        ASSERT_FALSE(ports.empty());
        const Difference sameStep = compare(small, general), portStep = compare(ports, general);
        const double plateMax = *std::max_element(general.begin(), general.end());
        std::printf("amplitude %.1f V: swing %.3f V, worst difference %.3g V (small system), %.3g V (ports)\n",
                    amplitude, sameStep.swing, sameStep.worst, portStep.worst);
        EXPECT_GT(sameStep.swing, amplitude * 10);  // the stage amplifies
        // The same step in the same arithmetic, taken with sizes known to the compiler.
        EXPECT_LE(sameStep.worst, 1e-5 * sameStep.swing);
        // The port form takes the step in double: each path stops where its last step
        // is within the relative tolerance (1e-5) of the plate voltage.
        EXPECT_LE(portStep.worst, 2 * 1e-5 * plateMax);
        // Driven into grid current from the first sample, the plate saturates a few
        // volts above the cathode; it never goes below ground.
        for (const auto* o : {&ports, &small, &general}) EXPECT_GE(*std::min_element(o->begin(), o->end()), 0.0f);
    }
}

TEST(SolversSpecialisedPath, TriodePortFormConvergesToTheCircuitsSolution) {
    // With the tolerance cut to 1e-9 the port form still converges, in a few iterations,
    // and the default tolerance's samples lie close to that solution. The step on all
    // unknowns in float cannot follow it below about 1e-5 of the plate voltage.
    for (double amplitude : {0.1, 4.0}) {
        const std::vector<float> ports = renderTriodeStage(amplitude, Path::ports);
        const std::vector<float> tight = renderTriodeStage(amplitude, Path::ports, "1.0e-9");
        const Difference d = compare(ports, tight);
        std::printf("amplitude %.1f V: default against 1e-9 tolerance %.3g V of %.3f V\n", amplitude, d.worst, d.swing);
        EXPECT_LE(d.worst, 1e-6 * d.swing);
    }
}

TEST(SolversSpecialisedPath, PreampCircuitPathGivesTheSamplesOfTheGeneralPath) {
    // The preamp's tube graphs solve on their LookupTableAmp's one port, the admittance
    // followed by a rank-one update; against the step on all unknowns of the small system
    // and against the general path.
    const int block = 512;
    std::vector<float> out[3];
    for (Path path : {Path::ports, Path::small, Path::general}) {
        KelmEffect effect;
        effect.setParameter(effect.parameterIndex("CPU"), 0.0f);
        effect.setParameter(effect.parameterIndex("Oversampling"), 1.0f);
        effect.setParameter(effect.parameterIndex("Gain"), 0.9f);
        effect.setSampleRate(48000);
        effect.setBlockSize(block);
        for (const char* graph : {"Triodes", "TriodesS"}) {
            NewtonSolver* newton = newtonOf(effect.getDriver(), graph);
            ASSERT_NE(nullptr, newton) << graph;
            newton->usePortForm(path == Path::ports);
            newton->useGeneralPath(path == Path::general);
            EXPECT_EQ(path == Path::ports, newton->portForm()) << graph;
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
                out[static_cast<int>(path)].push_back(outL[i]);
                out[static_cast<int>(path)].push_back(outR[i]);
            }
        }
        EXPECT_EQ(path != Path::general, newtonOf(effect.getDriver(), "Triodes")->specialised());
    }
    const Difference ports = compare(out[0], out[2]), small = compare(out[1], out[2]);
    std::printf("preamp circuit path: swing %.3f, worst difference %.3g (small system), %.3g (ports)\n", small.swing,
                small.worst, ports.worst);
    EXPECT_GT(small.swing, 0.1);
    // The Newton tolerance of graph Triodes is 5e-3 relative. The paths take the step with
    // different arithmetic (a port in double, cofactors in double, a pivoting factorisation
    // in float), so each stops at its own point within that tolerance: some 1e-4 of the
    // swing apart. A wrong step would not converge to within 1e-3.
    EXPECT_LE(small.worst, 1e-3 * small.swing);
    EXPECT_LE(ports.worst, 1e-3 * ports.swing);
}

TEST(SolversSpecialisedPath, TriodePortFormWithGroundedCathodeAndDrivenGrid) {
    // The cathode at ground and the grid on the input source itself: terminals that are no
    // solved unknowns take no row in the port form, and a forced grid enters its ports.
    std::string doc = readText(sourcePath("examples/triode-stage.xml"));
    const std::string terminals = "<Node Name=\"P\"/><Node Name=\"G\"/><Node Name=\"K\"/>";
    doc.replace(doc.find(terminals), terminals.size(), "<Node Name=\"P\"/><Node Name=\"in\"/><Node Name=\"GND\"/>");
    std::vector<float> out[2];
    for (int general = 0; general < 2; ++general) {
        auto d = makeDriver(doc, 192000, 128);
        NewtonSolver* newton = newtonOf(*d, "V1MNA");
        ASSERT_NE(nullptr, newton);
        newton->useGeneralPath(general == 1);
        EXPECT_EQ(general == 0, newton->portForm());
        std::vector<float> in(128);
        for (size_t n = 0; n < 19200; n += 128) {
            for (int i = 0; i < 128; ++i)
                in[i] = static_cast<float>(-1.5 + std::sin(2 * 3.14159265358979 * 1000 * (n + i) / 192000.0));
            d->process({in.data()}, 128);
            out[general].insert(out[general].end(), d->getResults()[0], d->getResults()[0] + 128);
        }
    }
    const Difference d = compare(out[0], out[1]);
    const double plateMax = *std::max_element(out[1].begin(), out[1].end());
    std::printf("grounded cathode: swing %.3f V, worst difference %.3g V\n", d.swing, d.worst);
    EXPECT_GT(d.swing, 10.0);
    EXPECT_LE(d.worst, 2 * 1e-5 * plateMax);
}

namespace {
// The 12AX7 stage on the same input as renderTriodeStage, in blocks of the sizes in
// `splits` taken in turn, with the solver's own sample loop or each sample through
// solve(); `iterations` receives the solver's count. Halfway, the input source's DC
// offset moves by `offset` volts (a property that leaves A as it is).
std::vector<float> renderInSplits(double amplitude, const std::vector<int>& splits, bool loop, long& iterations,
                                  float offset = 0) {
    auto d = makeDriver(readText(sourcePath("examples/triode-stage.xml")), 192000, 256);
    NewtonSolver* newton = newtonOf(*d, "V1MNA");
    EXPECT_NE(nullptr, newton);
    if (!newton) return {};
    newton->useSampleLoop(loop);
    EXPECT_EQ(loop, newton->runsSamples());
    std::vector<float> in(256), out;
    size_t n = 0;
    auto* circuit = dynamic_cast<Circuit*>(&d->getGraph("V1MNA"));
    Component* source = nullptr;
    for (Component* c : dynamic_cast<MNAContext&>(*circuit->getContext()).getComponents())
        if (c->name() == "input") source = c;
    EXPECT_NE(nullptr, source);
    for (size_t s = 0; n < 38400; ++s) {
        if (offset != 0 && source && n >= 19200 && n - 19200 < static_cast<size_t>(splits[s % splits.size()]))
            source->propertyChanged("DCOffset", offset);
        const int block = splits[s % splits.size()];
        for (int i = 0; i < block; ++i)
            in[i] = static_cast<float>(amplitude * (0.5 + std::sin(2 * 3.14159265358979 * 1000 * (n + i) / 192000.0)));
        d->process({in.data()}, block);
        out.insert(out.end(), d->getResults()[0], d->getResults()[0] + block);
        n += block;
    }
    iterations = newton->iterationCount();
    return out;
}
} // namespace

TEST(SolversSpecialisedPath, TriodeSampleLoopGivesTheSamplesOfSolveInAnyBlockSplit) {
    // The loop takes each sample's terms from the capacitors' currents and the input by
    // functions read off the components' rhs once per block; solve() asks the components.
    for (double amplitude : {0.1, 4.0}) {
        long loopIterations = 0, splitIterations = 0, solveIterations = 0;
        const std::vector<float> loop = renderInSplits(amplitude, {256}, true, loopIterations);
        const std::vector<float> split = renderInSplits(amplitude, {1, 7, 256, 100, 2, 33}, true, splitIterations);
        const std::vector<float> each = renderInSplits(amplitude, {256}, false, solveIterations);
        ASSERT_EQ(each.size(), loop.size());
        // Whatever the blocks, the same functions and so the same samples.
        EXPECT_EQ(loop, std::vector<float>(split.begin(), split.begin() + loop.size()));
        const Difference d = compare(loop, each);
        std::printf("amplitude %.1f V: sample loop against solve() %.3g V of %.3f V, %ld against %ld iterations\n",
                    amplitude, d.worst, d.swing, loopIterations, solveIterations);
        EXPECT_GT(d.swing, amplitude * 10);
        EXPECT_LE(d.worst, 1e-6 * d.swing);
        EXPECT_NEAR(static_cast<double>(loopIterations), static_cast<double>(solveIterations), 1e-3 * solveIterations);
    }
}

TEST(SolversSpecialisedPath, TriodeSampleLoopFollowsASourceChangedBetweenBlocks) {
    // A DC offset of the input source leaves A alone; the loop reads the sources' part
    // afresh each block, so it moves the grid as solve() does.
    long a = 0, b = 0, c = 0;
    const std::vector<float> loop = renderInSplits(1.0, {256, 100}, true, a, -0.5f);
    const std::vector<float> each = renderInSplits(1.0, {256, 100}, false, b, -0.5f);
    const std::vector<float> unchanged = renderInSplits(1.0, {256, 100}, true, c);
    ASSERT_EQ(each.size(), loop.size());
    const Difference d = compare(loop, each), moved = compare(loop, unchanged);
    std::printf("offset moved: loop against solve() %.3g V; %.3g V from the stage without it\n", d.worst, moved.worst);
    EXPECT_GT(moved.worst, 1.0);
    EXPECT_LE(d.worst, 1e-6 * d.swing);
}
