// The linear voltage-controlled voltage source: closed-loop gains at any open-loop gain,
// a floating output, and Newton's iteration on a loop through it.
#include <cmath>

#include "circuit/Circuit.h"
#include "solvers/NewtonSolver.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const char* kNewton =
    "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1.0e-6\" AbsoluteTollerance=\"1.0e-6\" "
    "MaxIterations=\"20\"/></Solver>";
// Newton's iteration on the whole matrix (a fixed-point step first keeps the solve kernels out).
const char* kGeneralNewton =
    "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1.0e-6\" AbsoluteTollerance=\"1.0e-6\" "
    "MaxIterations=\"20\" FixedPointSteps=\"1\"/></Solver>";

// A non-inverting stage: the source's output through 9k back to in-, 1k from in- to ground;
// the input at in+. Closed-loop gain A / (1 + A / 10).
std::string stage(const std::string& gain, const std::string& solver, const std::string& outMinus = "GND") {
    std::string body =
        element("VoltageInputSource", "in", "InputNumber=\"0\"", {"i", "GND"}) +
        element("VCVS", "E1", "Gain=\"" + gain + "\"", {"o", outMinus.c_str(), "i", "n"}) +
        element("Resistor", "Rf", "Resistance=\"9000\"", {"o", "n"}) +
        element("Resistor", "Rg", "Resistance=\"1000\"", {"n", "GND"}) +
        (outMinus == "GND" ? "" : element("Battery", "B", "Voltage=\"2\"", {outMinus.c_str(), "GND"})) +
        "<Output><Node Name=\"o\"/></Output><Analysis Type=\"AC\"><InitialCondition Type=\"Zero\">" + solver +
        "</InitialCondition>" + solver + "</Analysis>";
    return systemDoc("<Graph Name=\"C\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" "
                     "Node=\"0\"/></Inputs>" + body + "</Graph>",
                     "<Output Graph=\"C\" Node=\"o\"/>",
                     "<Control Name=\"Gain\" DisplayName=\"Gain\" Value=\"" + gain +
                         "\"><Properties><Property Name=\"Gain\" Graph=\"C\" Element=\"E1\"/></Properties></Control>");
}

std::vector<float> run(Driver& d, const std::vector<float>& x) {
    std::vector<float> in = x;
    d.process({in.data()}, in.size());
    return std::vector<float>(d.getResults()[0], d.getResults()[0] + in.size());
}

} // namespace

TEST(CircuitVCVS, ClosedLoopGainAtLowAndOpAmpGainsUnderLinearAndNewton) {
    const std::vector<float> x = {0.0f, 0.1f, -0.25f, 0.5f};
    const std::string linear = "<Solver Type=\"Linear\"/>";
    for (const char* gain : {"3", "100", "1e6"}) {
        const double a = std::atof(gain), closed = a / (1 + a / 10);
        for (const std::string& solver : {linear, std::string(kNewton), std::string(kGeneralNewton)}) {
            auto d = makeDriver(stage(gain, solver), 48000, 4);
            auto y = run(*d, x);
            for (size_t i = 0; i < x.size(); ++i)
                EXPECT_NEAR(closed * x[i], y[i], 1e-5 * closed + 1e-6) << gain << " " << solver << " " << i;
            auto* c = dynamic_cast<Circuit*>(&d->getGraph("C"));
            if (solver == kGeneralNewton) {
                // The loop is in the matrix: after the fixed-point step, Newton's first step lands
                // on the solution (a second one takes up the rounding in single precision at
                // op-amp gains). The old amplifier's loop, through the rhs, diverged here.
                auto* newton = dynamic_cast<NewtonSolver*>(c->getAnalysis()->solver.get());
                ASSERT_NE(nullptr, newton);
                EXPECT_GT(newton->lastIterations(), 0) << gain;
                EXPECT_LE(newton->lastIterations(), 3) << gain;
            } else {
                // The source keeps the circuit linear: a state-space system whatever the solver.
                EXPECT_STREQ("state-space", c->kernel().name()) << gain << " " << solver;
            }
        }
    }
}

TEST(CircuitVCVS, FloatingOutputAndGainChangedAtRunTime) {
    // out- held at 2 V: the output sits on it, and the feedback sees that offset too.
    auto d = makeDriver(stage("1e5", "<Solver Type=\"Linear\"/>", "m"), 48000, 2);
    const double a = 1e5, beta = 0.1;
    // V(o) = 2 + A (x - beta V(o)) -> V(o) = (2 + A x) / (1 + A beta)
    auto y = run(*d, {0.0f, 0.3f});
    EXPECT_NEAR(2 / (1 + a * beta), y[0], 1e-4);
    EXPECT_NEAR((2 + a * 0.3) / (1 + a * beta), y[1], 1e-4);
    d->findControl("Gain")->setValue(1.0f);  // a follower of gain 1 / (1 + 0.1)
    y = run(*d, {0.3f, 0.3f});
    EXPECT_NEAR((2 + 0.3) / 1.1, y[1], 1e-5);
    std::string threeNodes = stage("2", "<Solver Type=\"Linear\"/>");
    threeNodes.replace(threeNodes.find("<Node Name=\"n\"/></Element>"), 16, "");
    EXPECT_EQ("VCVS must have four nodes. VCVS name=E1", messageOf([&] { makeDriver(threeNodes); }));
}
