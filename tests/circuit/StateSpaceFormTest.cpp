// Linear circuits run as state-space systems: the same samples as the generic
// per-sample path, in any split of the blocks, through knob moves and source changes.
#include <algorithm>
#include <cmath>
#include <random>

#include "circuit/Circuit.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Five capacitors (more than the sizes compiled in), two inputs, one with a DC
// offset, a battery, and two outputs.
const char* kLadder = R"(<System><Graphs><Graph Name="L" Type="MNA">
  <NumberOfInputs>2</NumberOfInputs>
  <Inputs><Input Graph="System" Node="0"/><Input Graph="System" Node="1"/></Inputs>
  <Element Type="VoltageInputSource" Name="in1"><Properties InputNumber="0"/><Node Name="i1"/><Node Name="GND"/></Element>
  <Element Type="VoltageInputSource" Name="in2"><Properties InputNumber="1" DCOffset="0.25"/><Node Name="i2"/><Node Name="GND"/></Element>
  <Element Type="Battery" Name="B"><Properties Voltage="9"/><Node Name="b"/><Node Name="GND"/></Element>
  <Element Type="Resistor" Name="R1"><Properties Resistance="1000"/><Node Name="i1"/><Node Name="n1"/></Element>
  <Element Type="Resistor" Name="R2"><Properties Resistance="2200"/><Node Name="n1"/><Node Name="n2"/></Element>
  <Element Type="Resistor" Name="R3"><Properties Resistance="4700"/><Node Name="n2"/><Node Name="a"/></Element>
  <Element Type="Resistor" Name="R4"><Properties Resistance="10000"/><Node Name="i2"/><Node Name="n2"/></Element>
  <Element Type="Resistor" Name="R5"><Properties Resistance="100000"/><Node Name="b"/><Node Name="a"/></Element>
  <Element Type="Resistor" Name="R6"><Properties Resistance="47000"/><Node Name="a"/><Node Name="GND"/></Element>
  <Element Type="Capacitor" Name="C1"><Properties Capacitance="1e-6"/><Node Name="n1"/><Node Name="GND"/></Element>
  <Element Type="Capacitor" Name="C2"><Properties Capacitance="47e-9"/><Node Name="n2"/><Node Name="GND"/></Element>
  <Element Type="Capacitor" Name="C3"><Properties Capacitance="10e-9"/><Node Name="a"/><Node Name="GND"/></Element>
  <Element Type="Capacitor" Name="C4"><Properties Capacitance="220e-9"/><Node Name="n1"/><Node Name="n2"/></Element>
  <Element Type="Capacitor" Name="C5"><Properties Capacitance="4.7e-6" IntegrationScheme="BackwardEuler"/><Node Name="i2"/><Node Name="a"/></Element>
  <Output><Node Name="a"/><Node Name="n2"/></Output>
  <Analysis Type="AC"><InitialCondition Type="OperatingPoint"><Solver Type="Linear"/></InitialCondition><Solver Type="Linear"/></Analysis>
</Graph></Graphs><Outputs><Output Graph="L" Node="a"/><Output Graph="L" Node="n2"/></Outputs></System>)";

struct Rendered {
    std::vector<std::vector<float>> out;
    bool stateSpace = false;
};

// Renders the document's first circuit for the given inputs in blocks of the sizes
// `split` draws; `between(frame)` runs before the block that starts at that frame.
Rendered render(const std::string& doc, const std::string& graph, const std::vector<std::vector<float>>& in,
                bool stateSpace, const std::function<int()>& split,
                const std::function<void(Driver&, Circuit&, size_t)>& between = nullptr) {
    auto d = makeDriver(doc, 48000, 2048);
    auto& circuit = dynamic_cast<Circuit&>(d->getGraph(graph));
    circuit.setStateSpaceEnabled(stateSpace);
    Rendered r;
    r.stateSpace = circuit.runsAsStateSpace();
    const size_t frames = in[0].size();
    for (size_t at = 0; at < frames;) {
        const size_t n = std::min<size_t>(split(), frames - at);
        if (between) between(*d, circuit, at);
        std::vector<float*> inputs;
        for (auto& channel : in) inputs.push_back(const_cast<float*>(channel.data()) + at);
        d->process(inputs, n);
        r.out.resize(d->getResults().size());
        for (size_t k = 0; k < r.out.size(); ++k) r.out[k].insert(r.out[k].end(), d->getResults()[k], d->getResults()[k] + n);
        at += n;
    }
    return r;
}

} // namespace

TEST(CircuitStateSpace, ToneStackGivesTheGenericPathsSamplesThroughKnobMoves) {
    const std::string doc = readText(sourcePath("examples/baxandall.xml"));
    const std::vector<std::vector<float>> in = {noise(48000, 3)};
    std::mt19937 random(5);
    // Knobs move every 2000 frames, at the same frames in both runs.
    auto knobs = [](Driver& d, Circuit&, size_t at) {
        if (at % 2000 != 0) return;
        d.findControl("Bass")->setValue(static_cast<float>((at / 2000 * 37) % 100) / 99.0f);
        d.findControl("Treble")->setValue(static_cast<float>((at / 2000 * 61) % 100) / 99.0f);
    };
    auto blocksOf2000 = [] { return 2000; };
    const Rendered generic = render(doc, "Baxandall", in, false, blocksOf2000, knobs);
    const Rendered fast = render(doc, "Baxandall", in, true, blocksOf2000, knobs);
    EXPECT_FALSE(generic.stateSpace);
    ASSERT_TRUE(fast.stateSpace);
    const double error = relativeError(generic.out[0], fast.out[0]);
    std::printf("tone stack: state-space form against the generic path, worst %.2e of peak\n", error);
    EXPECT_LT(error, 1e-5);
    EXPECT_GT(error, 0.0);  // two different computations: a zero would mean one ran twice

    // The state is carried across blocks in double: any split gives the same samples.
    auto anySplit = [&random] { return static_cast<int>(random() % 700) + 1; };
    const Rendered whole = render(doc, "Baxandall", in, true, [] { return 1000; });
    const Rendered pieces = render(doc, "Baxandall", in, true, anySplit);
    EXPECT_EQ(whole.out[0], pieces.out[0]);
}

TEST(CircuitStateSpace, SourcesInputsAndManyCapacitorsAgreeWithTheGenericPath) {
    // At DC the capacitors are open: n1 carries no current to ground, so R1 and R2 are in
    // series, and the nodal equations of n2 and a give the settled outputs.
    const double in1 = 0.5, in2 = -0.3 + 0.25, battery = 9;
    const double g12 = 1 / 3200.0, g3 = 1 / 4700.0, g4 = 1 / 10000.0, g5 = 1 / 100000.0, g6 = 1 / 47000.0;
    // (g12 + g4 + g3) n2 - g3 a = g12 in1 + g4 in2;  -g3 n2 + (g3 + g5 + g6) a = g5 battery
    const double a11 = g12 + g4 + g3, a22 = g3 + g5 + g6, r1 = g12 * in1 + g4 * in2, r2 = g5 * battery;
    const double det = a11 * a22 - g3 * g3;
    const double n2 = (r1 * a22 + g3 * r2) / det, a = (a11 * r2 + g3 * r1) / det;
    const std::vector<std::vector<float>> constant = {std::vector<float>(48000, static_cast<float>(in1)),
                                                      std::vector<float>(48000, -0.3f)};
    auto blocks = [] { return 300; };
    for (bool stateSpace : {false, true}) {
        const Rendered settled = render(kLadder, "L", constant, stateSpace, blocks);
        const double errorA = std::fabs(settled.out[0].back() / a - 1), errorN2 = std::fabs(settled.out[1].back() / n2 - 1);
        std::printf("ladder at DC, %s: a %.7f (exact %.7f), relative errors %.1e and %.1e\n",
                    stateSpace ? "state-space form" : "generic path", settled.out[0].back(), a, errorA, errorN2);
        EXPECT_LT(std::max(errorA, errorN2), stateSpace ? 1e-6 : 1e-3);
    }

    // A signal through both; the second input's DC offset changes halfway, and the form
    // takes it up at the next block. The generic path carries float rounding through the
    // long time constants (C5 with its resistors: some 1500 samples), so the two part by
    // up to a few 1e-5 of the peak.
    const std::vector<std::vector<float>> in = {noise(24000, 7), noise(24000, 8)};
    auto offset = [](Driver&, Circuit& c, size_t at) {
        if (at == 12000) c.getMNAContext()->getElement("in2")->propertyChanged("DCOffset", -1.5f);
    };
    const Rendered generic = render(kLadder, "L", in, false, blocks, offset);
    const Rendered fast = render(kLadder, "L", in, true, blocks, offset);
    ASSERT_TRUE(fast.stateSpace);
    ASSERT_EQ(2u, fast.out.size());
    for (int k = 0; k < 2; ++k) {
        const double error = relativeError(generic.out[k], fast.out[k]);
        std::printf("ladder, output %d: worst %.2e of peak\n", k, error);
        EXPECT_LT(error, 2e-4) << "output " << k;
    }
    // The offset step shows: a different level before and after.
    EXPECT_GT(std::fabs(fast.out[1][11990] - fast.out[1][23990]), 0.1);

    // A circuit with a tube is no linear system: the generic path runs it.
    const Rendered tube = render(readText(sourcePath("examples/triode-stage.xml")), "V1MNA", {noise(256, 1)}, true, blocks);
    EXPECT_FALSE(tube.stateSpace);
}
