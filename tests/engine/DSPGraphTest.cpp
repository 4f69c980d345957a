// Processing methods, wiring, feedback and the graph switches of DSP graphs.
#include <cmath>

#include "dsp/Gain.h"
#include "dsp/DSPGraph.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

std::string gain(const std::string& name, const std::string& g, const std::string& from, const std::string& out = "0") {
    std::string src = from == "Graph" ? "<Input Port=\"in\" Element=\"Graph\" Output=\"" + out + "\"/>"
                                      : "<Input Port=\"in\" Element=\"" + from + "\" Output=\"out\"/>";
    return "<Element Type=\"Gain\" Name=\"" + name + "\"><Properties Gain=\"" + g + "\"/><Inputs>" + src +
           "</Inputs></Element>";
}

// A one-graph system whose output is element `out`.
std::string oneGraph(const std::string& props, const std::string& elements, const std::string& out,
                     const std::string& controls = "", const std::string& extra = "") {
    return systemDoc("<Graph Name=\"G\" Type=\"DSP\">" + props + "<NumberOfInputs>1</NumberOfInputs>" +
                         "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" + elements +
                         "<Output><Node Name=\"out\" Element=\"" + out + "\" Index=\"0\"/></Output></Graph>" + extra,
                     "<Output Graph=\"G\" Node=\"out\"/>", controls);
}

std::vector<float> runSystem(Driver& d, const std::vector<float>& in, size_t block) {
    std::vector<float> out;
    std::vector<float> buf(block);
    for (size_t i = 0; i < in.size(); i += block) {
        size_t n = std::min(block, in.size() - i);
        std::copy(in.begin() + i, in.begin() + i + n, buf.begin());
        d.process({buf.data()}, n);
        out.insert(out.end(), d.getResults()[0], d.getResults()[0] + n);
    }
    return out;
}

// y[n] = x[n] + 0.5*y[n-1] as a Sequential feedback loop.
const char* kEcho =
    "<Element Type=\"DifferentialFilter\" Name=\"Sum\"><Properties Gain=\"1\"/><Inputs>"
    "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/><Input Port=\"minus\" Element=\"Fb\" Output=\"out\"/>"
    "</Inputs></Element>"
    "<Element Type=\"Gain\" Name=\"Fb\"><Properties Gain=\"-0.5\"/><Inputs>"
    "<Input Port=\"in\" Element=\"Sum\" Output=\"out\"/></Inputs></Element>";

} // namespace

TEST(EngineDSPGraph, BlockChainRunsInTopologicalOrderWhateverTheDefinitionOrder) {
    // B is defined before A but reads A: the Block order must put A first.
    auto d = makeDriver(oneGraph("", gain("B", "3", "A") + gain("A", "2", "Graph"), "B"));
    std::vector<float> x = {1, -2, 0.5f};
    auto y = runSystem(*d, x, 3);
    for (size_t i = 0; i < x.size(); ++i) EXPECT_FLOAT_EQ(6 * x[i], y[i]);
}

TEST(EngineDSPGraph, FeedbackIsCutAtTheBackEdgeAndDelayedOneSample) {
    std::vector<float> x(50);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(0.3f * i);
    for (size_t block : {1u, 7u, 50u}) {
        auto d = makeDriver(oneGraph("<Properties ProcessingMethod=\"Sequential\"/>", kEcho, "Sum"));
        auto y = runSystem(*d, x, block);
        double prev = 0;
        for (size_t i = 0; i < x.size(); ++i) {
            double expect = x[i] + 0.5 * prev;
            EXPECT_NEAR(expect, y[i], 1e-5) << "block " << block << " frame " << i;
            prev = expect;
        }
    }
    EXPECT_EQ("Filters do not form a DAG.", messageOf([] { makeDriver(oneGraph("", kEcho, "Sum")); }));
}

TEST(EngineDSPGraph, IterativeRelaxationConvergesPerFrame) {
    // Three passes of relaxation 0.5 per frame: s[n] = s[n-1]/8 + 7/8 x[n].
    std::string props =
        "<Properties ProcessingMethod=\"Iterative\" RelativeTollerance=\"1e-30\" AbsoluteTollerance=\"1e-30\" "
        "MaxIterations=\"3\"/>";
    std::string elements =
        "<Element Type=\"Relaxation\" Name=\"R\"><Properties Relaxation=\"0.5\"/><Inputs>"
        "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>" +
        gain("Out", "1", "R");
    auto d = makeDriver(oneGraph(props, elements, "Out"));
    std::vector<float> x = {1, 1, 1, -1, 0.25f, 3};
    auto y = runSystem(*d, x, 4);
    double s = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        s = s / 8 + 7.0 / 8 * x[i];
        EXPECT_NEAR(s, y[i], 1e-6);
    }
    // With one pass per frame: s[n] = s[n-1]/2 + x[n]/2.
    auto one = makeDriver(oneGraph(
        "<Properties ProcessingMethod=\"Iterative\" RelativeTollerance=\"0.1\" AbsoluteTollerance=\"0.1\" "
        "MaxIterations=\"1\"/>",
        elements, "Out"));
    y = runSystem(*one, x, 6);
    s = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        s = s / 2 + x[i] / 2;
        EXPECT_NEAR(s, y[i], 1e-6);
    }
}

TEST(EngineDSPGraph, UnconnectedPortsAndGraphInputsInBackEdges) {
    // A DifferentialFilter whose minus port is unconnected: Iterative reads 0 there.
    std::string props =
        "<Properties ProcessingMethod=\"Iterative\" RelativeTollerance=\"1\" AbsoluteTollerance=\"1\" "
        "MaxIterations=\"2\"/>";
    std::string diff =
        "<Element Type=\"DifferentialFilter\" Name=\"D\"><Properties Gain=\"2\"/><Inputs>"
        "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>";
    auto d = makeDriver(oneGraph(props, diff, "D"));
    auto y = runSystem(*d, {1.5f, -1}, 2);
    EXPECT_FLOAT_EQ(3, y[0]);
    EXPECT_FLOAT_EQ(-2, y[1]);
}

TEST(EngineDSPGraph, SwitchesOffBypassAndSuspend) {
    std::string controls =
        "<Control Name=\"B\" DisplayName=\"B\" Value=\"0\"><Properties><Property Name=\"Bypass\" Graph=\"G\"/>"
        "</Properties></Control>"
        "<Control Name=\"B7\" DisplayName=\"B7\" Value=\"0\"><Properties><Property Name=\"Bypass_7\" Graph=\"G\"/>"
        "</Properties></Control>"
        "<Control Name=\"O\" DisplayName=\"O\" Value=\"0\"><Properties><Property Name=\"Off\" Graph=\"G\"/>"
        "</Properties></Control>"
        "<Control Name=\"S\" DisplayName=\"S\" Value=\"0\"><Properties><Property Name=\"Suspend\" Graph=\"G\"/>"
        "</Properties></Control>";
    auto d = makeDriver(oneGraph("", gain("A", "2", "Graph"), "A", controls));
    auto c = [&](const std::string& n) { return d->findControl(n); };
    std::vector<float> x = {1, 2};
    EXPECT_FLOAT_EQ(4, runSystem(*d, x, 2)[1]);
    c("O")->setValue(1);
    EXPECT_FLOAT_EQ(0, runSystem(*d, x, 2)[1]);
    c("B")->setValue(0.7f);  // bypass wins over off
    EXPECT_FLOAT_EQ(2, runSystem(*d, x, 2)[1]);
    c("O")->setValue(0);
    c("B7")->setValue(1);
    c("B")->setValue(0.5f);  // exactly 0.5 releases bit 0, bit 7 still holds the bypass
    EXPECT_FLOAT_EQ(2, runSystem(*d, x, 2)[1]);
    Graph& g = d->getGraph("G");
    EXPECT_TRUE(g.isBypassed());
    c("B7")->setValue(0);
    EXPECT_FLOAT_EQ(4, runSystem(*d, x, 2)[1]);
    EXPECT_FALSE(g.isBypassed());
    c("S")->setValue(1);  // accepted on a graph of multiplier 1, changes nothing audible
    EXPECT_FLOAT_EQ(4, runSystem(*d, x, 2)[1]);
    EXPECT_TRUE(g.isSuspended());
    g.setMultiplier(4.0);
    EXPECT_EQ("Graph: Cannot suspend a graph with the multiplier not equal to 1. multiplier=4",
              messageOf([&] { g.propertyChanged("Suspend", 1); }));
    EXPECT_EQ("Graph: Unknown property Mute", messageOf([&] { g.propertyChanged("Mute", 1); }));
}

TEST(EngineDSPGraph, BlockSizeLimitsAndGraphMessages) {
    auto d = makeDriver(oneGraph("", gain("A", "2", "Graph"), "A"), 48000, 8);
    Graph& g = d->getGraph("G");
    std::vector<float> buf(9, 1.0f);
    BufferList in = {buf.data()};
    EXPECT_NO_THROW(g.process(in, 8));
    EXPECT_EQ("maxBlockSize is less than input size. DSPGraph name: G maxBlockSize: 8 input size:9",
              messageOf([&] { g.process(in, 9); }));
    EXPECT_EQ("DSPGraph: Invalid maxBlockSize0", messageOf([&] { g.setMaxBlockSize(0); }));
    EXPECT_EQ("Graph: invalid output index: 1 Number of outputs: 1", messageOf([&] { g.getResult(1); }));
    EXPECT_EQ("Graph::getResult(std::string outputName) is not yet implemented.",
              messageOf([&] { g.getResult(std::string("out")); }));
    EXPECT_EQ("Number of inputs must be greater than zero. Number of inputs =-1",
              messageOf([&] { g.setNumberOfInputs(-1); }));
    DSPGraph bare;
    bare.setName("bare");
    EXPECT_EQ("Context not set for DSPGraph bare", messageOf([&] { bare.init(); }));
}

TEST(EngineDSPGraph, IterativePropertiesAreRequiredAndChecked) {
    auto doc = [](const std::string& props) {
        return oneGraph("<Properties ProcessingMethod=\"Iterative\" " + props + "/>", gain("A", "1", "Graph"), "A");
    };
    EXPECT_EQ("DSPGraph: RelativeTollerance is not defined.", messageOf([&] { makeDriver(doc("")); }));
    EXPECT_EQ("DSPGraph: AbsoluteTollerance is not defined.",
              messageOf([&] { makeDriver(doc("RelativeTollerance=\"1\"")); }));
    EXPECT_EQ("DSPGraph: MaxIterations is not defined.",
              messageOf([&] { makeDriver(doc("RelativeTollerance=\"1\" AbsoluteTollerance=\"1\"")); }));
    EXPECT_EQ("DSPGraph: RelativeTollerance must be greater than 0. relativeTollerance=0",
              messageOf([&] { makeDriver(doc("RelativeTollerance=\"0\"")); }));
    EXPECT_EQ("DSPGraph: MaxIterations must be greater than 0. MaxIterations=0",
              messageOf([&] {
                  makeDriver(doc("RelativeTollerance=\"1\" AbsoluteTollerance=\"1\" MaxIterations=\"0\""));
              }));
    EXPECT_EQ("DSPGraph: Invalid ProcessingMethod property Fast",
              messageOf([&] { makeDriver(oneGraph("<Properties ProcessingMethod=\"Fast\"/>", gain("A", "1", "Graph"), "A")); }));
    // A graph input inside a loop cannot be cut.
    std::string loop = "<Element Type=\"Gain\" Name=\"A\"><Properties Gain=\"1\"/><Inputs>"
                       "<Input Port=\"in\" Element=\"A\" Output=\"out\"/></Inputs></Element>";
    EXPECT_NO_THROW(makeDriver(oneGraph("<Properties ProcessingMethod=\"Sequential\"/>", loop, "A")));
}
