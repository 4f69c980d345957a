// The semiconductor devices and windings against their closed forms, their errors, and their
// robustness far outside their working ranges.
#include <cmath>

#include "circuit/Circuit.h"
#include "circuit/devices/BJT.h"
#include "circuit/devices/Diode.h"
#include "circuit/devices/JFET.h"
#include "circuit/devices/Junction.h"
#include "circuit/devices/MOSFET.h"
#include "circuit/devices/SemiconductorModels.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const std::string kSolvers =
    "<Analysis Type=\"AC\"><InitialCondition Type=\"OperatingPoint\"><Solver Type=\"NewtonRaphson\">"
    "<Properties RelativeTollerance=\"1e-7\" AbsoluteTollerance=\"1e-9\" MaxIterations=\"300\"/></Solver>"
    "</InitialCondition><Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-6\" "
    "AbsoluteTollerance=\"1e-9\" MaxIterations=\"20\"/></Solver></Analysis>";

// A one-input circuit of the given elements with outputs at the given nodes.
std::string circuitDoc(const std::string& elements, std::initializer_list<const char*> outputs) {
    std::string graph = "<Graph Name=\"C\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs>"
                        "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" +
                        element("VoltageInputSource", "input", "InputNumber=\"0\"", {"in", "GND"}) + elements;
    std::string outs;
    for (const char* o : outputs) {
        graph += std::string("<Output><Node Name=\"") + o + "\"/></Output>";
        outs += std::string("<Output Graph=\"C\" Node=\"") + o + "\"/>";
    }
    return systemDoc(graph + kSolvers + "</Graph>", outs);
}

MNAContext& contextOf(Driver& d) { return *dynamic_cast<Circuit&>(d.getGraph("C")).getMNAContext(); }

double node(Driver& d, const char* name) {
    MNAContext& c = contextOf(d);
    return c.solution()[c.nodeIndex(name)];
}

template <typename T>
T& device(Driver& d, const char* name) {
    return *dynamic_cast<T*>(contextOf(d).getElement(name));
}

// The steady-state amplitude of out for a sine of frequency f (Hz) and amplitude 1 at in.
double sineGain(const std::string& doc, double f, double rate) {
    auto d = makeDriver(doc, static_cast<float>(rate), 256);
    const size_t settle = static_cast<size_t>(rate / 5), measure = static_cast<size_t>(rate / 10);
    std::vector<float> in(256);
    double peak = 0;
    for (size_t i = 0; i < settle + measure; i += 256) {
        for (size_t n = 0; n < 256; ++n) in[n] = static_cast<float>(std::sin(2 * M_PI * f * double(i + n) / rate));
        d->process({in.data()}, 256);
        if (i >= settle)
            for (size_t n = 0; n < 256; ++n) peak = std::max(peak, std::fabs(double(d->getResults()[0][n])));
    }
    return peak;
}

const double vt = Junction::thermalVoltage();

} // namespace

TEST(CircuitSemiconductor, DiodeFollowsShockleyWithItsSeriesResistance) {
    // 5 V through 1k into a diode with Rs = 10 ohms: the voltage across it is the junction's
    // N Vt ln(I / Is + 1) plus I Rs, I from the resistor's drop.
    auto d = makeDriver(circuitDoc(element("Battery", "B", "Voltage=\"5\"", {"s", "GND"}) +
                                       element("Resistor", "R", "Resistance=\"1000\"", {"s", "a"}) +
                                       element("Diode", "D", "Is=\"1e-14\" N=\"1.5\" Rs=\"10\"", {"a", "GND"}),
                                   {"a"}),
                        48000);
    const double va = node(*d, "a"), current = (5 - va) / 1000;
    EXPECT_NEAR(1.5 * vt * std::log(current / 1e-14 + 1) + 10 * current, va, 1e-4);
    EXPECT_NEAR(va - 10 * current, node(*d, "D#anode"), 1e-5);
    // The law itself, with the minimum conductance across the junction.
    double g;
    for (double v : {-2.0, -0.05, 0.0, 0.3, 0.6, 0.75}) {
        const double expected = 1e-14 * (std::exp(v / (1.5 * vt)) - 1) + 1e-12 * v;
        EXPECT_NEAR(expected, device<Diode>(*d, "D").junctionCurrent(v, g), 1e-9 * std::fabs(expected) + 1e-18) << v;
    }
}

TEST(CircuitSemiconductor, ParametersChangedWhilePlayingHoldAtOnceAndOnceTheTablesReturn) {
    // 5 V through 1k into a diode, Is doubled while it plays: the junction settles at once
    // where Shockley's law with the new Is puts it (evaluated exactly while the parameter
    // moves) and stays there when the device's tables come back, built from the new Is,
    // thousands of samples later.
    auto d = makeDriver(circuitDoc(element("Battery", "B", "Voltage=\"5\"", {"s", "GND"}) +
                                       element("Resistor", "R", "Resistance=\"1000\"", {"s", "a"}) +
                                       element("Diode", "D", "Is=\"1e-14\" N=\"1.5\" Cjo=\"1e-12\"", {"a", "GND"}),
                                   {"a"}),
                        48000, 64);
    std::vector<float> in(64, 0.0f);
    auto run = [&](int blocks) {
        for (int b = 0; b < blocks; ++b) d->process({in.data()}, 64);
        return static_cast<double>(d->getResults()[0][63]);
    };
    const double before = run(10);
    device<Diode>(*d, "D").propertyChanged("Is", 2e-14f);
    const double moved = run(10);
    double expected = before;
    for (int k = 0; k < 50; ++k) expected = 1.5 * vt * std::log((5 - expected) / 1000 / 2e-14 + 1);
    EXPECT_LT(moved, before - 0.02);
    EXPECT_NEAR(expected, moved, 1e-5);
    EXPECT_NEAR(moved, run(200), 1e-6);
}

TEST(CircuitSemiconductor, ZenerBreaksDownAtBv) {
    auto d = makeDriver(circuitDoc(element("Diode", "D", "Bv=\"5.1\" Ibv=\"0.005\"", {"a", "GND"}), {"in"}), 48000);
    double g;
    // At -Bv the reverse current is Ibv, and it grows by e for every N Vt further.
    EXPECT_NEAR(-0.005, device<Diode>(*d, "D").junctionCurrent(-5.1, g), 1e-5);
    EXPECT_NEAR(-0.005 * std::exp(1.0), device<Diode>(*d, "D").junctionCurrent(-5.1 - vt, g), 1e-4);
    // Without Bv the same diode only leaks.
    auto plain = makeDriver(circuitDoc(element("Diode", "D", "", {"a", "GND"}), {"in"}), 48000);
    EXPECT_GT(device<Diode>(*plain, "D").junctionCurrent(-50, g), -1e-10);
}

TEST(CircuitSemiconductor, BjtFollowsEbersMollWithBetaAndEarlySlope) {
    auto d = makeDriver(circuitDoc(element("BJT", "Q", "Is=\"1e-15\" Bf=\"200\" Br=\"3\"", {"c", "b", "GND"}) +
                                       element("BJT", "E", "Is=\"1e-15\" Bf=\"200\" Br=\"3\" Vaf=\"50\"", {"c", "b", "GND"}) +
                                       element("BJT", "P", "Polarity=\"PNP\" Is=\"1e-15\" Bf=\"200\" Br=\"3\"",
                                               {"c", "b", "GND"}),
                                   {"in"}),
                        48000);
    BJT& q = device<BJT>(*d, "Q");
    for (auto bias : {std::make_pair(0.6, -5.0), std::make_pair(0.7, -2.0), std::make_pair(0.72, 0.5),
                      std::make_pair(-0.3, 0.65)}) {
        const double vbe = bias.first, vbc = bias.second;
        const double ef = std::exp(vbe / vt) - 1, er = std::exp(vbc / vt) - 1;
        double ib, ic, slope[4];
        q.transport(vbe, vbc, ib, ic, slope);
        // Ebers-Moll in transport form, the minimum conductance across the collector junction;
        // the junctions interpolated from their tables, within 1e-6.
        const double icExpected = 1e-15 * (ef - er) - 1e-15 / 3 * er - 1e-12 * vbc;
        const double ibExpected = 1e-15 / 200 * ef + 1e-15 / 3 * er + 1e-12 * (vbe + vbc);
        EXPECT_NEAR(icExpected, ic, 1e-6 * std::fabs(icExpected) + 1e-15) << vbe << " " << vbc;
        EXPECT_NEAR(ibExpected, ib, 1e-6 * std::fabs(ibExpected) + 1e-15) << vbe << " " << vbc;
    }
    // Forward active: beta is Bf.
    double ib, ic, slope[4];
    q.transport(0.65, -4, ib, ic, slope);
    EXPECT_NEAR(200, ic / ib, 0.01);
    // The Early effect: Ic grows with Vce by Ic / Vaf per volt (at Vbc = 0 the base charge is one).
    BJT& early = device<BJT>(*d, "E");
    double v[2] = {0.65, 0.65}, i[2], di[4], f[1], df[2];
    early.evaluatePorts(v, i, di, f, df);
    for (int k = 0; k < 5; ++k) early.evaluatePorts(v, i, di, f, df);  // past the step limits
    EXPECT_NEAR(i[1] / 50, di[3], 1e-3 * i[1] / 50);
    // A PNP is the NPN with every voltage and current reversed.
    BJT& pnp = device<BJT>(*d, "P");
    double w[2] = {-0.65, -3}, j[2];
    double n[2] = {0.65, 3}, m[2];
    for (int k = 0; k < 20; ++k) {
        pnp.evaluatePorts(w, j, di, f, df);
        q.evaluatePorts(n, m, di, f, df);
    }
    EXPECT_NEAR(-m[0], j[0], 1e-12);
    EXPECT_NEAR(-m[1], j[1], 1e-9);
}

// Within a transient at 192 kHz, charges included: for diodes and transistors of the library
// the ports' Jacobian is the derivative of the ports' currents (central differences), at
// points from reverse bias through the depletion charge's linear continuation to full
// conduction; a point evaluated again, after others or at once, gives the same numbers
// bit for bit; and a changed parameter is not answered from the last evaluation.
TEST(CircuitSemiconductor, JunctionPortSlopesAreTheCurrentsDerivatives) {
    struct Part {
        const char* type;
        const char* model;
        std::vector<std::vector<double>> points;  // port voltages (V)
    };
    const std::vector<std::vector<double>> diodePoints = {{-2}, {-0.3}, {0}, {0.3}, {0.45}, {0.6}, {0.7}};
    // In binary fractions, so that the transistors' ports come back exactly from their junctions.
    const std::vector<std::vector<double>> npnPoints = {{0.625, 5}, {0.6875, 0.125}, {-1, 5}, {0.25, -2}, {0.75, 0.75}};
    const std::vector<std::vector<double>> pnpPoints = {{-0.625, -5}, {-0.6875, -0.125}, {1, -5}, {-0.25, 2}};
    const Part parts[] = {{"Diode", "1N4148", diodePoints}, {"Diode", "1N914", diodePoints},
                          {"Diode", "1N4001", diodePoints}, {"Diode", "LED_RED", {{-2}, {0.5}, {1.6}, {1.8}}},
                          {"BJT", "2N3904", npnPoints},     {"BJT", "BC109C", npnPoints},
                          {"BJT", "2N3906", pnpPoints},     {"BJT", "AC128", {{-0.15625, -5}, {-0.1875, -0.0625}, {0.3125, -5}}}};
    const double h = 1e-6;
    for (const Part& part : parts) {
        const bool diode = std::string(part.type) == "Diode";
        std::string elements = element("Resistor", "R0", "Resistance=\"1\"", {"in", "t0"}) +
                               element("Resistor", "R1", "Resistance=\"1\"", {"GND", "t1"});
        if (!diode) elements += element("Resistor", "R2", "Resistance=\"1\"", {"GND", "t2"});
        elements += "<Element Type=\"" + std::string(part.type) + "\" Name=\"X\"><Properties Model=\"" + part.model +
                    "\"/><Node Name=\"t0\"/><Node Name=\"t1\"/>" + (diode ? "" : "<Node Name=\"t2\"/>") + "</Element>";
        auto d = makeDriver(circuitDoc(elements, {"t0"}), 192000, 64);
        std::vector<float> in(64, 0.0f);
        d->process({in.data()}, 64);  // the operating point, then a transient with charges
        Component& x = device<Component>(*d, "X");
        const int P = x.portLayout()->ports;
        double f[2], df[4];
        auto evaluate = [&](std::vector<double> v, double* i, double* di) {
            x.evaluatePorts(v.data(), i, di, f, df);
            return v;
        };
        // Evaluates at v0 until the step limits no longer shorten the way there.
        auto settle = [&](const std::vector<double>& v0, double* i, double* di) {
            for (int k = 0; k < 200 && evaluate(v0, i, di) != v0; ++k) {
            }
            return evaluate(v0, i, di) == v0;
        };
        for (const std::vector<double>& v0 : part.points) {
            x.acceptPorts(v0.data());
            double i0[2], di0[4], i[2], di[4];
            ASSERT_TRUE(settle(v0, i0, di0)) << part.model << " " << v0[0];
            for (int q = 0; q < P; ++q) {
                std::vector<double> plus = v0, minus = v0;
                plus[q] += h;
                minus[q] -= h;
                double ip[2], im[2];
                evaluate(plus, ip, di);
                evaluate(minus, im, di);
                for (int p = 0; p < P; ++p) {
                    const double slope = (ip[p] - im[p]) / (2 * h), g = di0[p * P + q];
                    EXPECT_NEAR(slope, g, 1e-5 * std::fabs(g) + 1e-10)
                        << part.model << " at " << v0[0] << (P > 1 ? ", " + std::to_string(v0[1]) : "") << ": dI" << p
                        << "/dV" << q;
                }
            }
            evaluate(v0, i, di);
            for (int k = 0; k < 2; ++k) {
                for (int p = 0; p < P; ++p) EXPECT_EQ(i0[p], i[p]) << part.model << " " << v0[0];
                for (int c = 0; c < P * P; ++c) EXPECT_EQ(di0[c], di[c]) << part.model << " " << v0[0];
                evaluate(v0, i, di);
            }
        }
        // Ten times the saturation current: at the same point, several times the diode's
        // current or the collector's (forward active, below high injection; the charges'
        // currents do not scale), and the numbers of an evaluation that comes back to it.
        const std::vector<double> v0 = diode ? part.points.back() : part.points.front();
        double i0[2], di0[4], i[2], di[4], again[2];
        ASSERT_TRUE(settle(v0, i0, di0));
        x.propertyChanged("Is", 10 * std::stof(SemiconductorModels::find(part.model)->parameters.at("Is")));
        evaluate(v0, i, di);
        EXPECT_GT(std::fabs(i[P - 1]), 5 * std::fabs(i0[P - 1])) << part.model;
        std::vector<double> beside = v0;
        beside[0] += h;
        evaluate(beside, again, di);
        evaluate(v0, again, di);
        for (int p = 0; p < P; ++p) EXPECT_EQ(again[p], i[p]) << part.model;
    }
}

TEST(CircuitSemiconductor, JfetSaturationAndTriodeRegions) {
    auto d = makeDriver(
        circuitDoc(element("JFET", "J", "Beta=\"1e-3\" Vto=\"-2\" Lambda=\"0.01\"", {"d", "g", "GND"}), {"in"}), 48000);
    JFET& j = device<JFET>(*d, "J");
    double ig, id, slope[4];
    // Saturation: Beta (Vgs - Vto)^2 (1 + Lambda Vds).
    j.currents(-1, 5, ig, id, slope);
    EXPECT_NEAR(1e-3 * 1 * 1.05, id, 1e-9);
    EXPECT_NEAR(2e-3 * 1.05, slope[2], 1e-8);
    // Triode: Beta Vds (2 (Vgs - Vto) - Vds) (1 + Lambda Vds).
    j.currents(0, 0.5, ig, id, slope);
    EXPECT_NEAR(1e-3 * 0.5 * 3.5 * 1.005, id, 1e-9);
    // Below pinch-off only the junctions' leakage flows; with drain and source swapped the
    // current reverses.
    j.currents(-2.5, 5, ig, id, slope);
    EXPECT_LT(std::fabs(id), 1e-10);
    double idSwapped;
    j.currents(-0.5, -0.5, ig, idSwapped, slope);  // gate 0 V against the drain
    EXPECT_NEAR(-1e-3 * 0.5 * 3.5 * 1.005, idSwapped, 1e-6);
}

TEST(CircuitSemiconductor, MosfetLevelOneRegions) {
    auto d = makeDriver(circuitDoc(element("MOSFET", "M", "Kp=\"0.1\" Vto=\"2\" Lambda=\"0.02\" W=\"2e-4\"",
                                           {"d", "g", "GND"}) +
                                       element("Resistor", "Rg", "Resistance=\"1e6\"", {"g", "GND"}),
                                   {"in"}),
                        48000);
    MOSFET& m = device<MOSFET>(*d, "M");
    double gm, gds;
    // Beta = Kp W / L = 0.2: saturation Beta / 2 (Vgs - Vto)^2 (1 + Lambda Vds).
    EXPECT_NEAR(0.1 * 1 * 1.1, m.drainCurrent(3, 5, gm, gds), 1e-9);
    EXPECT_NEAR(0.2 * 0.5 * (1 - 0.25) * 1.01, m.drainCurrent(3, 0.5, gm, gds), 1e-9);
    EXPECT_NEAR(0, m.drainCurrent(1.5, 5, gm, gds), 1e-11);
}

TEST(CircuitSemiconductor, InductorCornerAtThePrewarpedFrequency) {
    // 1k into 10 mH to ground: a high-pass at R / (2 pi L) = 15.9 kHz. The trapezoidal rule
    // puts the -3 dB point of the sampled filter at fs / pi atan(pi fc / fs).
    const std::string doc = circuitDoc(element("Resistor", "R", "Resistance=\"1000\"", {"in", "out"}) +
                                           element("Inductor", "L", "Inductance=\"0.01\"", {"out", "GND"}),
                                       {"out"});
    const double fs = 48000, fc = 1000 / (2 * M_PI * 0.01);
    const double warped = fs / M_PI * std::atan(M_PI * fc / fs);
    EXPECT_NEAR(1 / std::sqrt(2.0), sineGain(doc, warped, fs), 2e-3);
    EXPECT_GT(std::fabs(sineGain(doc, fc, fs) - 1 / std::sqrt(2.0)), 0.02);
    // In DC analysis a short: the operating point of 1 V through 100 ohms into it.
    auto d = makeDriver(circuitDoc(element("Battery", "B", "Voltage=\"1\"", {"s", "GND"}) +
                                       element("Resistor", "R", "Resistance=\"100\"", {"s", "out"}) +
                                       element("Inductor", "L", "Inductance=\"2\"", {"out", "GND"}),
                                   {"out"}),
                        48000);
    EXPECT_NEAR(0, node(*d, "out"), 1e-6);
}

TEST(CircuitSemiconductor, TransformerTurnsRatioAndCoupling) {
    // The primary driven (through 1 milliohm: a source straight across a winding would leave
    // its current undetermined in DC), the secondary nearly open: v2 / v1 = k sqrt(L2 / L1).
    for (double k : {0.99, 0.5}) {
        const std::string doc = circuitDoc(
            element("Transformer", "T", "Inductances=\"1|0.25\" Coupling=\"" + std::to_string(k) + "\"",
                    {"p", "GND", "out", "GND"}) +
                element("Resistor", "Rp", "Resistance=\"1e-3\"", {"in", "p"}) +
                element("Resistor", "R", "Resistance=\"1e6\"", {"out", "GND"}),
            {"out"});
        EXPECT_NEAR(k * 0.5, sineGain(doc, 1000, 48000), 1e-3) << k;
    }
}

TEST(CircuitSemiconductor, BadDocumentsAreRefusedNamingTheCause) {
    struct Case {
        std::string elements, expected;
    } cases[] = {
        {element("Diode", "D7", "", {"a", "b", "c"}), "D7"},
        {element("BJT", "Q7", "", {"a", "b"}), "Q7"},
        {element("JFET", "J7", "", {"a", "b"}), "J7"},
        {element("MOSFET", "M7", "", {"a"}), "M7"},
        {element("Diode", "D1", "Model=\"1N9999\"", {"a", "GND"}), "1N9999"},
        {element("BJT", "Q1", "Model=\"1N4148\"", {"a", "b", "GND"}), "1N4148"},
        {element("BJT", "Q1", "Polarity=\"NPNP\"", {"a", "b", "GND"}), "NPNP"},
        {element("JFET", "J1", "Polarity=\"Q\"", {"a", "b", "GND"}), "Polarity"},
        {element("Diode", "D1", "Is=\"-1\"", {"a", "GND"}), "Is"},
        {element("Inductor", "L1", "Inductance=\"-0.1\"", {"a", "GND"}), "L1"},
        {element("Inductor", "L2", "Inductance=\"1\"", {"a"}), "L2"},
        {element("Transformer", "T1", "Inductances=\"1|1\" Coupling=\"1\"", {"a", "GND", "b", "GND"}), "Coupling"},
        {element("Transformer", "T1", "Inductances=\"1|1\" Coupling=\"0\"", {"a", "GND", "b", "GND"}), "Coupling"},
        {element("Transformer", "T1", "Inductances=\"1|1\" Coupling=\"-0.5\"", {"a", "GND", "b", "GND"}), "Coupling"},
        {element("Transformer", "T1", "Inductances=\"1|-1\" Coupling=\"0.5\"", {"a", "GND", "b", "GND"}), "Inductances"},
        {element("Transformer", "T1", "Inductances=\"1\" Coupling=\"0.5\"", {"a", "GND", "b", "GND"}), "Inductances"},
        {element("Transformer", "T9", "Inductances=\"1|1\" Coupling=\"0.5\"", {"a", "GND", "b"}), "T9"},
    };
    for (const Case& c : cases) {
        const std::string message = messageOf([&] { makeDriver(circuitDoc(c.elements, {"in"}), 48000); });
        EXPECT_NE(std::string::npos, message.find(c.expected)) << c.elements << ": " << message;
    }
}

TEST(CircuitSemiconductor, EveryModelOfTheLibraryRunsFiniteFromMinus100To100Volts) {
    // Each terminal in turn driven through 1 ohm by a ramp from -100 V to 100 V and back, the
    // others held at 0 V through 1 ohm: every node stays finite.
    struct Part {
        const char* type;
        const char* model;
        int terminals;
    } parts[] = {{"Diode", "1N4148", 2},    {"Diode", "1N914", 2},     {"Diode", "1N34A", 2},
                 {"Diode", "1N4001", 2},    {"Diode", "1N5817", 2},    {"Diode", "LED_RED", 2},
                 {"Diode", "LED_GREEN", 2}, {"BJT", "2N3904", 3},      {"BJT", "2N3906", 3},
                 {"BJT", "2N5088", 3},      {"BJT", "2N5089", 3},      {"BJT", "2N2222", 3},
                 {"BJT", "BC109C", 3},      {"BJT", "BC549C", 3},      {"BJT", "AC128", 3},
                 {"JFET", "2N5457", 3},     {"JFET", "J201", 3},       {"MOSFET", "2N7000", 3},
                 {"MOSFET", "BS170", 3}};
    const char* names[3] = {"t0", "t1", "t2"};
    for (const Part& p : parts) {
        for (int driven = 0; driven < p.terminals; ++driven) {
            std::string elements;
            for (int t = 0; t < p.terminals; ++t)
                elements += element("Resistor", std::string("R") + names[t], "Resistance=\"1\"",
                                    {t == driven ? "in" : "GND", names[t]});
            std::vector<const char*> nodes(names, names + p.terminals);
            std::string e = "<Element Type=\"" + std::string(p.type) + "\" Name=\"X\"><Properties Model=\"" +
                            p.model + "\"/>";
            for (const char* n : nodes) e += std::string("<Node Name=\"") + n + "\"/>";
            elements += e + "</Element>";
            auto d = makeDriver(circuitDoc(elements, {"t0", "t1"}), 48000, 100);
            std::vector<float> in(100);
            bool finite = true;
            for (int b = 0; b < 40; ++b) {
                for (int n = 0; n < 100; ++n) {
                    const double phase = (b * 100 + n) / 4000.0;
                    in[n] = static_cast<float>(phase < 0.5 ? -100 + 400 * phase : 300 - 400 * phase);
                }
                d->process({in.data()}, 100);
                for (int o = 0; o < 2; ++o)
                    for (int n = 0; n < 100; ++n) finite = finite && std::isfinite(d->getResults()[o][n]);
            }
            const DenseVector& x = contextOf(*d).solution();
            for (int i = 0; i < x.size(); ++i) finite = finite && std::isfinite(x[i]);
            EXPECT_TRUE(finite) << p.model << " driven at terminal " << driven;
        }
    }
}

TEST(CircuitSemiconductor, EveryExampleRunsFiniteAt10Volts) {
    for (const char* name : {"diode-clipper", "opamp-overdrive", "fuzz-face", "fuzz-face-silicon", "big-muff",
                             "jfet-booster", "wah", "transformer-stage"}) {
        auto d = makeDriver(readText(sourcePath(std::string("examples/") + name + ".xml")), 192000, 480);
        std::vector<float> in(480);
        bool finite = true;
        for (int b = 0; b < 20; ++b) {
            for (int n = 0; n < 480; ++n) in[n] = static_cast<float>(10 * std::sin(2 * M_PI * 1000 * (b * 480 + n) / 192000.0));
            d->process({in.data()}, 480);
            for (int n = 0; n < 480; ++n) finite = finite && std::isfinite(d->getResults()[0][n]);
        }
        EXPECT_TRUE(finite) << name;
    }
}
