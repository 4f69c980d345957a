// Circuits from documents: starts, analysis, singular systems, parser and component messages.
#include <cmath>

#include "circuit/Capacitor.h"
#include "circuit/Circuit.h"
#include "circuit/MNAContext.h"
#include "circuit/Potentiometer.h"
#include "circuit/Resistor.h"
#include "circuit/VoltageInputSource.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

std::string analysis(const std::string& type, const std::string& start, const std::string& solver = "Linear") {
    std::string s = "<Analysis Type=\"" + type + "\">";
    if (!start.empty()) {
        s += "<InitialCondition Type=\"" + start + "\">";
        if (start == "OperatingPoint") s += "<Solver Type=\"" + solver + "\"/>";
        s += "</InitialCondition>";
    }
    return s + "<Solver Type=\"" + solver + "\"/></Analysis>";
}

std::string circuitDoc(const std::string& body, const std::string& outputs = "<Output><Node Name=\"a\"/></Output>",
                       int inputs = 0) {
    std::string in = inputs ? "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
                            : "";
    return systemDoc("<Graph Name=\"C\" Type=\"MNA\">" + in + body + outputs + "</Graph>",
                     "<Output Graph=\"C\" Node=\"a\"/>");
}

// 10 V through 1k into node a, 1k to ground, 10 uF across the lower resistor.
std::string rcBody(const std::string& start) {
    return element("Battery", "B", "Voltage=\"10\"", {"b", "GND"}) +
           element("Resistor", "R1", "Resistance=\"1000\"", {"b", "a"}) +
           element("Resistor", "R2", "Resistance=\"1000\"", {"a", "GND"}) +
           element("Capacitor", "C", "Capacitance=\"10e-6\"", {"a", "0"}) + analysis("AC", start);
}

std::vector<float> runCircuit(Driver& d, size_t frames) {
    std::vector<float> in(frames, 0.0f), out;
    d.process({in.data()}, frames);
    out.assign(d.getResults()[0], d.getResults()[0] + frames);
    return out;
}

} // namespace

TEST(CircuitStart, OperatingPointStartsAtTheDcSolutionZeroStartsFromNothing) {
    auto op = makeDriver(circuitDoc(rcBody("OperatingPoint")), 48000, 256);
    auto y = runCircuit(*op, 256);
    for (float v : y) EXPECT_NEAR(5.0, v, 1e-4);  // no start-up transient
    auto zero = makeDriver(circuitDoc(rcBody("Zero")), 48000, 256);
    y = runCircuit(*zero, 256);
    // Trapezoidal RC from rest: v(t) -> 5 (1 - exp(-t/tau)), tau = 500k * 10u = 5 ms.
    EXPECT_LT(y[0], 0.1);
    const double tau = 500.0 * 10e-6;
    for (size_t n : {24u, 120u, 255u})
        EXPECT_NEAR(5.0 * (1 - std::exp(-(n + 1.0) / 48000.0 / tau)), y[n], 0.02) << n;
}

TEST(CircuitStart, DcAnalysisAndInputSources) {
    // DC: capacitors take no part; the input follows the source at once.
    std::string body = element("VoltageInputSource", "in", "InputNumber=\"0\" DCOffset=\"1\"", {"i", "GND"}) +
                       element("Resistor", "R1", "Resistance=\"1000\"", {"i", "a"}) +
                       element("Resistor", "R2", "Resistance=\"3000\"", {"a", "GND"}) +
                       element("Capacitor", "C", "Capacitance=\"1\"", {"a", "GND"}) + analysis("DC", "");
    auto d = makeDriver(circuitDoc(body, "<Output><Node Name=\"a\"/></Output>", 1));
    std::vector<float> x = {0, 1, 3};
    d->process({x.data()}, 3);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(0.75 * (x[i] + 1), d->getResults()[0][i], 1e-5);
    // The same with the source in current mode: one more unknown, same voltages.
    std::string currentMode = body;
    currentMode.replace(currentMode.find("DCOffset=\"1\""), 12, "DCOffset=\"1\" UseFixedVoltage=\"false\"");
    auto m = makeDriver(circuitDoc(currentMode, "<Output><Node Name=\"a\"/></Output>", 1));
    m->process({x.data()}, 3);
    EXPECT_NEAR(3.0, m->getResults()[0][2], 1e-5);
    auto* c = dynamic_cast<Circuit*>(&m->getGraph("C"));
    EXPECT_EQ(3, c->getMNAContext()->size());  // two nodes and the source current
}

TEST(CircuitStart, SingularSystemsFailInTheFactorisation) {
    // A node reached only through a capacitor floats in DC analysis.
    std::string floating = element("Battery", "B", "Voltage=\"1\"", {"b", "GND"}) +
                           element("Resistor", "R", "Resistance=\"1000\"", {"b", "GND"}) +
                           element("Capacitor", "C", "Capacitance=\"1e-6\"", {"b", "a"}) + analysis("DC", "");
    EXPECT_EQ("ludcmp returned error: -1", messageOf([&] { makeDriver(circuitDoc(floating)); }));
    // A source with both nodes grounded is in current mode with an empty row.
    std::string grounded = element("VoltageInputSource", "in", "InputNumber=\"0\"", {"GND", "0"}) +
                           element("Resistor", "R", "Resistance=\"1000\"", {"a", "GND"}) + analysis("AC", "Zero");
    EXPECT_EQ("ludcmp returned error: -1", messageOf([&] { makeDriver(circuitDoc(grounded)); }));
}

TEST(CircuitParserMessages, EveryMessage) {
    const std::string r = element("Resistor", "R", "Resistance=\"1\"", {"a", "GND"});
    auto graph = [](const std::string& body) {
        return systemDoc("<Graph Name=\"C\" Type=\"MNA\">" + body + "</Graph>", "");
    };
    struct Case {
        std::string doc;
        std::string message;
    } cases[] = {
        {graph(analysis("AC", "Zero")), "No elements in graph C"},
        {graph("<Element Type=\"Resistor\"><Properties Resistance=\"1\"/><Node Name=\"a\"/></Element>"),
         "Element name is not specified in graph C"},
        {graph("<Element Type=\"Resistor\" Name=\"R\"><Properties Resistance=\"1\"/></Element>"),
         "Element: R. No Nodes specified."},
        {graph("<Element Type=\"Resistor\" Name=\"R\"><Node/></Element>"), "Element: R. Node without a name."},
        {graph(r + "<Output><Node/></Output>"), "Output Node without a name."},
        {graph(r), "Analysis node is missing in the graph C"},
        {graph(r + "<Analysis/>"), "Analysis Type attribute is missing in the graph C"},
        {graph(r + "<Analysis Type=\"TRAN\"/>"), "Invalid analysis Type attribute TRAN in the graph C"},
        {graph(r + "<Analysis Type=\"AC\"/>"), "InitialCondition node is missing in the graph C"},
        {graph(r + "<Analysis Type=\"AC\"><InitialCondition/></Analysis>"),
         "InitialCondition Type attribute is missing in the graph C"},
        {graph(r + "<Analysis Type=\"AC\"><InitialCondition Type=\"Rest\"/></Analysis>"),
         "Invalid InitialCondition Type attribute Rest in the graph C"},
        {graph(r + "<Analysis Type=\"AC\"><InitialCondition Type=\"OperatingPoint\"/></Analysis>"),
         "InitialCondition Solver is not defined."},
        {graph(r + "<Analysis Type=\"AC\"><InitialCondition Type=\"OperatingPoint\"><Solver/></InitialCondition></Analysis>"),
         "InitialCondition Solver type is not defined."},
        {graph(r + "<Analysis Type=\"DC\"/>"), "Analysis Solver is not defined."},
        {graph(r + "<Analysis Type=\"DC\"><Solver/></Analysis>"), "Analysis Solver type is not defined."},
        {graph(r + "<Analysis Type=\"DC\"><Solver Type=\"linear\"/></Analysis>"), "Unknown solver type: linear"},
        {graph(r + "<Analysis Type=\"DC\"><Solver Type=\"NewtonRaphson\"/></Analysis>"),
         "InitilaCondition Solver's properties are not defined."},
        {graph(element("Transistor", "Q", "", {"a"}) + analysis("DC", "")), "Unknown element type: Transistor"},
        {graph(r + r + analysis("DC", "")), "Duplicate component name: R"},
        {graph(element("Resistor", "R", "Resistance=\"1\"", {"GND", "0"}) + analysis("DC", "")), "No MNA nodes."},
        {graph(r + "<Output><Node Name=\"zz\"/></Output>" + analysis("DC", "")),
         "Output node with name zz does not exist."},
        {graph(r + "<Output><Node Name=\"GND\"/></Output>" + analysis("DC", "")),
         "Output node with name GND does not exist."},
        {graph(r + analysis("AC", "User")), "Invalid initial condition for Circuit C"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.message, messageOf([&] {
                      Driver d;
                      d.init(c.doc);
                  })) << c.doc;
    // A Zero start never reads its initial-condition solver, whatever type it names.
    std::string zeroWithBogusSolver =
        graph(r + "<Output><Node Name=\"a\"/></Output><Analysis Type=\"AC\"><InitialCondition Type=\"Zero\"><Solver "
                  "Type=\"Bogus\"/></InitialCondition><Solver Type=\"Linear\"/></Analysis>");
    EXPECT_EQ("", messageOf([&] { Driver().init(zeroWithBogusSolver); }));
}

TEST(CircuitComponents, MessagesAndStamps) {
    auto ctx = std::make_shared<MNAContext>();
    auto names = [](std::initializer_list<const char*> n) {
        auto v = std::make_shared<std::vector<std::string>>();
        for (auto s : n) v->push_back(s);
        return v;
    };
    auto props = [](const PropertyMap& p) { return std::make_shared<PropertyMap>(p); };
    Resistor r;
    EXPECT_EQ("Resistance is not defined. Resistor name=R", messageOf([&] { r.init("R", props({}), names({"a", "b"}), ctx); }));
    EXPECT_EQ("Resistance cannot be negative. Resistor name=R, value=-1",
              messageOf([&] { r.init("R", props({{"Resistance", "-1"}}), names({"a", "b"}), ctx); }));
    r.init("R", props({{"Resistance", "0"}}), names({"a", "b"}), ctx);
    EXPECT_EQ(999999995904.0f, r.getG()[0][0]);  // a short is 1e12 siemens
    EXPECT_EQ("propertyChanged: Invalid property name: Ohms. Resistor name=R",
              messageOf([&] { r.propertyChanged("Ohms", 1.0f); }));

    Potentiometer p;
    EXPECT_EQ("Resistance cannot be negative or zero. Potentiometer name=P, value=0",
              messageOf([&] { p.init("P", props({{"Resistance", "0"}, {"Wiper", "0.5"}}), names({"a", "w", "b"}), ctx); }));
    p.init("P", props({{"Resistance", "1000"}, {"Wiper", "0"}}), names({"a", "w", "b"}), ctx);
    float low = p.getG()[0][0];
    p.propertyChanged("Wiper", 0.001f);
    EXPECT_EQ(low, p.getG()[0][0]);  // 0 is limited to 0.001
    EXPECT_NEAR(1.0 / (0.001 * 1000), low, 1e-3);
    p.propertyChanged("Wiper", 1.0f);
    EXPECT_FLOAT_EQ(0.999f, p.getWiper());
    EXPECT_EQ("Wiper value must be between 0 and 1. Potentiometer name=P, value=1.5",
              messageOf([&] { p.propertyChanged("Wiper", 1.5f); }));
    EXPECT_FLOAT_EQ(1.5f, p.getWiper());  // the rejected position is stored, the stamp is not
    EXPECT_NEAR(1.0 / (0.999 * 1000), p.getG()[0][0], 1e-6);

    Capacitor c;
    EXPECT_EQ("Unknown IntegrationScheme Euler",
              messageOf([&] {
                  c.init("Cx", props({{"Capacitance", "1"}, {"IntegrationScheme", "Euler"}}), names({"a", "b"}), ctx);
              }));
    Capacitor c2;
    EXPECT_EQ("propertyChanged: Capacitance cannot be negative. Capacitor name=Cy, value=-1",
              messageOf([&] { c2.init("Cy", props({{"Capacitance", "-1"}}), names({"a", "b"}), ctx); }));
    EXPECT_EQ("Capacitor: Invalid sampling rate: 0", messageOf([&] { c2.sampleRateChanged(0); }));
    VoltageInputSource v;
    EXPECT_EQ("InputNumber is not defined. VoltageInputSource name=V",
              messageOf([&] { v.init("V", props({}), names({"a", "GND"}), ctx); }));
}

TEST(CircuitContext, FixedNodesComeLastAndShareOneRow) {
    // Two sources fixing the same node get one index, behind the free nodes and extras.
    std::string body = element("Battery", "B1", "Voltage=\"2\"", {"f", "GND"}) +
                       element("Battery", "B2", "Voltage=\"2\"", {"f", "GND"}) +
                       element("Resistor", "R1", "Resistance=\"1000\"", {"f", "a"}) +
                       element("Resistor", "R2", "Resistance=\"1000\"", {"a", "GND"}) +
                       element("OpAmp", "U", "", {"GND", "o", "m"}) +
                       element("Resistor", "R3", "Resistance=\"1000\"", {"a", "m"}) +
                       element("Resistor", "R4", "Resistance=\"2000\"", {"m", "o"}) + analysis("DC", "");
    auto d = makeDriver(circuitDoc(body, "<Output><Node Name=\"a\"/><Node Name=\"o\"/><Node Name=\"f\"/></Output>"));
    auto* c = dynamic_cast<Circuit*>(&d->getGraph("C"));
    auto& ctx = *c->getMNAContext();
    EXPECT_EQ(5, ctx.size());  // a, m, o, the op-amp current, f
    EXPECT_EQ(4, ctx.nodeIndex("f"));
    std::vector<float> in(1, 0.0f);
    d->process({in.data()}, 1);
    // a: 2 V through 1k against 1k || the inverting input at virtual ground: a = 2/3 V... solved exactly:
    // (2 - a)/1000 = a/1000 + a/1000 -> a = 2/3; o = -2 * a.
    EXPECT_NEAR(2.0 / 3, c->getState()[0], 1e-5);
    EXPECT_NEAR(-4.0 / 3, ctx.solution()[ctx.nodeIndex("o")], 1e-5);
    EXPECT_NEAR(2.0, ctx.solution()[4], 1e-6);
}
