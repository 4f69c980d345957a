// The solve kernels: which circuit takes which, the port form against the general
// iteration, block splits, and small signals on high-voltage nodes.
#include <cmath>
#include <dirent.h>
#include <map>
#include <sstream>

#include "circuit/Circuit.h"
#include "engine/SystemInfo.h"
#include "plugin/core/KelmEffect.h"
#include "solvers/NodalKernel.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Two 12AX7 stages with a volume pot between them: the classic preamp of many amplifiers,
// and the circuit that once ran below real time.
std::string twoTriodes(const std::string& solver =
                           "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-5\" "
                           "AbsoluteTollerance=\"1e-6\" MaxIterations=\"20\" Accelerate=\"true\" "
                           "ErrorCorrectionFactor=\"0.99\"/></Solver>") {
    std::string e = element("VoltageInputSource", "in", "InputNumber=\"0\"", {"I", "GND"}) +
                    element("Resistor", "Rs1", "Resistance=\"68000\"", {"I", "G1"}) +
                    element("Battery", "B+", "Voltage=\"250\"", {"B", "GND"}) +
                    element("Resistor", "Rp1", "Resistance=\"100000\"", {"B", "P1"}) +
                    element("Resistor", "Rk1", "Resistance=\"1500\"", {"K1", "GND"}) +
                    element("Capacitor", "Ck1", "Capacitance=\"22e-6\"", {"K1", "GND"}) +
                    element("Triode", "V1", "Type=\"12AX7\"", {"P1", "G1", "K1"}) +
                    element("Capacitor", "Cc1", "Capacitance=\"22e-9\"", {"P1", "X"}) +
                    element("Potentiometer", "Vol", "Resistance=\"1000000\" Wiper=\"0.5\"", {"X", "W", "GND"}) +
                    element("Resistor", "Rs2", "Resistance=\"10000\"", {"W", "G2"}) +
                    element("Resistor", "Rp2", "Resistance=\"100000\"", {"B", "P2"}) +
                    element("Resistor", "Rk2", "Resistance=\"1500\"", {"K2", "GND"}) +
                    element("Capacitor", "Ck2", "Capacitance=\"22e-6\"", {"K2", "GND"}) +
                    element("Triode", "V2", "Type=\"12AX7\"", {"P2", "G2", "K2"}) +
                    element("Capacitor", "Cc2", "Capacitance=\"22e-9\"", {"P2", "O"}) +
                    element("Resistor", "Rl", "Resistance=\"1000000\"", {"O", "GND"});
    std::string graph =
        "<Graph Name=\"Pre\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" "
        "Node=\"0\"/></Inputs>" +
        e +
        "<Output><Node Name=\"O\"/></Output><Analysis Type=\"AC\"><InitialCondition Type=\"OperatingPoint\">"
        "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-7\" AbsoluteTollerance=\"1e-7\" "
        "MaxIterations=\"200\"/></Solver></InitialCondition>" +
        solver + "</Analysis></Graph>";
    return systemDoc(graph, "<Output Graph=\"Pre\" Node=\"O\"/>",
                     "<Control Name=\"Vol\" DisplayName=\"Volume\" Value=\"0.5\"><Properties><Property Name=\"Wiper\" Graph=\"Pre\" "
                     "Element=\"Vol\"/></Properties></Control>");
}

std::vector<std::string> exampleFiles() {
    std::vector<std::string> names;
    if (DIR* dir = opendir(sourcePath("examples").c_str())) {
        while (dirent* e = readdir(dir)) {
            std::string name = e->d_name;
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".xml") == 0) names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// "graph: kernel" for every MNA graph, as `kelm info` prints them.
std::map<std::string, std::string> kernelsOf(Driver& d) {
    std::ostringstream text;
    SystemInfo::describe(d, text);
    std::map<std::string, std::string> kernels;
    std::istringstream lines(text.str());
    std::string line, graph;
    while (std::getline(lines, line)) {
        if (line.rfind("  ", 0) == 0 && line[2] != ' ') graph = line.substr(2, line.find(" [") - 2);
        const size_t at = line.find("kernel: ");
        if (at != std::string::npos) kernels[graph] = line.substr(at + 8, line.find(" (", at) - at - 8);
    }
    return kernels;
}

std::vector<float> sine(size_t frames, double amplitude, double rate, double frequency = 1000) {
    std::vector<float> x(frames);
    for (size_t n = 0; n < frames; ++n) x[n] = static_cast<float>(amplitude * std::sin(2 * M_PI * frequency * n / rate));
    return x;
}

// Output 0 of a document driven by `in` in blocks of the sizes given in turn.
std::vector<float> render(Driver& d, const std::vector<float>& in, const std::vector<size_t>& blocks) {
    std::vector<float> out;
    size_t b = 0;
    for (size_t at = 0; at < in.size(); ++b) {
        const size_t n = std::min(blocks[b % blocks.size()], in.size() - at);
        std::vector<const float*> inputs(std::max(1, d.getNumberOfInputs()), in.data() + at);
        BufferList list;
        for (const float* p : inputs) list.push_back(const_cast<float*>(p));
        d.process(list, n);
        out.insert(out.end(), d.getResults()[0], d.getResults()[0] + n);
        at += n;
    }
    return out;
}

Circuit* circuitOf(Driver& d, const std::string& graph) { return dynamic_cast<Circuit*>(&d.getGraph(graph)); }

} // namespace

TEST(SolversKernels, EachCircuitTakesItsKernel) {
    // Every example: linear circuits as state-space systems, nonlinear ones in the port form.
    for (const std::string& name : exampleFiles()) {
        auto d = makeDriver(readText(sourcePath("examples/" + name)), 96000, 64);
        for (auto& entry : kernelsOf(*d)) {
            Circuit* c = circuitOf(*d, entry.first);
            ASSERT_NE(nullptr, c) << name;
            bool nonlinear = false;
            for (Component* part : c->getMNAContext()->getComponents()) nonlinear = nonlinear || part->portLayout();
            EXPECT_EQ(nonlinear ? "port form" : "state-space", entry.second) << name << ": " << entry.first;
        }
    }
    // The built-in preamp, on both paths (the switch chooses graphs, not kernels).
    for (float cpu : {0.0f, 1.0f}) {
        KelmEffect effect;
        effect.setParameter(effect.parameterIndex("CPU"), cpu);
        effect.setSampleRate(48000);
        effect.setBlockSize(64);
        effect.resume();
        auto kernels = kernelsOf(effect.getDriver());
        EXPECT_EQ("state-space", kernels["Baxandall"]);
        EXPECT_EQ("state-space", kernels["Baxandall_preS"]);
        EXPECT_EQ("port form", kernels["Triodes"]);
        EXPECT_EQ("port form", kernels["TriodesS"]);
    }
    // Several tubes; and what only the general iteration does.
    auto general = [](const std::string& solver) {
        auto d = makeDriver(twoTriodes(solver), 96000, 64);
        return kernelsOf(*d)["Pre"];
    };
    EXPECT_EQ("port form", general(
        "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-5\" AbsoluteTollerance=\"1e-6\" "
        "MaxIterations=\"20\"/></Solver>"));
    EXPECT_EQ("general", general("<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-5\" "
                                 "AbsoluteTollerance=\"1e-6\" MaxIterations=\"20\" FixedPointSteps=\"1\"/></Solver>"));
    EXPECT_EQ("general", general("<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-5\" "
                                 "AbsoluteTollerance=\"1e-6\" MaxIterations=\"20\" UseDiagonalNewton=\"true\"/></Solver>"));
    EXPECT_EQ("general", general("<Solver Type=\"SimplifiedNewton\"><Properties RelativeTollerance=\"1e-5\" "
                                 "AbsoluteTollerance=\"1e-6\" MaxIterations=\"50\"/></Solver>"));
    EXPECT_EQ("general", general("<Solver Type=\"Linear\"/>"));
    // The reason is printed beside the kernel.
    auto d = makeDriver(twoTriodes("<Solver Type=\"Linear\"/>"), 96000, 64);
    std::ostringstream text;
    SystemInfo::describe(*d, text);
    EXPECT_NE(std::string::npos, text.str().find("the Linear solver evaluates the nonlinear devices")) << text.str();
}

TEST(SolversKernels, PortFormAgreesWithTheGeneralIteration) {
    // Both solve the same equations: from the same state, the general iteration (the
    // document's solver on all unknowns, in float) gives the port form's samples within its
    // accuracy. Taken over short stretches at several places of a sine, from the state that
    // the port form reached: over seconds, the float iteration's rounding on high-voltage
    // nodes drifts away (which the port form's double state is there to avoid). The float
    // iteration's own floor, measured on the two triodes: 0.13 V of a 154 V swing whatever
    // its tolerance (1e-5 to 1e-9), where the port form at 1e-5 lies within 0.3 mV of itself
    // at 1e-10 (see the next test).
    struct Case {
        std::string name, document;
    };
    std::vector<Case> cases = {{"two triodes", twoTriodes()}};
    for (const std::string& name : exampleFiles()) {
        std::string doc = readText(sourcePath("examples/" + name));
        for (const char* device : {"Triode", "Pentode", "Diode", "BJT", "JFET", "MOSFET"})
            if (doc.find("\"" + std::string(device) + "\"") != std::string::npos) {
                cases.push_back({name, doc});
                break;
            }
    }
    const double rate = 192000;
    const size_t stretch = 48;
    for (const Case& c : cases) {
        // The document's relative tolerance (its last solver's), read back from its text.
        const size_t at = c.document.rfind("RelativeTollerance=\"");
        const double tolerance = std::strtod(c.document.c_str() + at + 20, nullptr);
        double worst = 0, lo = 1e9, hi = -1e9;
        for (size_t start : {1000u, 1061u, 1133u, 1180u}) {
            const auto in = sine(start + stretch, 0.5, rate);
            auto fast = makeDriver(c.document, static_cast<float>(rate), 64);
            auto slow = makeDriver(c.document, static_cast<float>(rate), 64);
            const std::vector<float> head(in.begin(), in.begin() + start), tail(in.begin() + start, in.end());
            render(*fast, head, {64});
            render(*slow, head, {64});
            for (const GraphPtr& g : slow->getGraphs())
                if (auto* circuit = dynamic_cast<Circuit*>(g.get())) {
                    ASSERT_STRNE("general", circuit->kernel().name()) << c.name;
                    circuit->setKernelsAllowed(false);
                }
            const auto a = render(*fast, tail, {stretch});
            const auto b = render(*slow, tail, {stretch});
            for (size_t n = 0; n < a.size(); ++n) {
                ASSERT_TRUE(std::isfinite(a[n])) << c.name << " at " << start + n;
                worst = std::max(worst, static_cast<double>(std::fabs(a[n] - b[n])));
                lo = std::min<double>(lo, a[n]);
                hi = std::max<double>(hi, a[n]);
            }
        }
        std::printf("%s: largest difference %.3g V, output from %.4g to %.4g V, tolerance %g\n", c.name.c_str(), worst,
                    lo, hi, tolerance);
        // The float floor (a thousandth of the swing) and twice the tolerance at the output.
        EXPECT_LT(worst, 1e-3 * (hi - lo) + 2 * tolerance * std::max(std::fabs(lo), std::fabs(hi))) << c.name;
    }
}

TEST(SolversKernels, PortFormConvergesToTheCircuitsSolution) {
    // The port form at the documents' tolerance against itself at 1e-10: what the default
    // tolerance leaves, relative to the output's swing.
    auto solverAt = [](double tolerance) {
        std::ostringstream s;
        s << "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"" << tolerance
          << "\" AbsoluteTollerance=\"" << tolerance / 10
          << "\" MaxIterations=\"60\" Accelerate=\"true\" ErrorCorrectionFactor=\"0.99\"/></Solver>";
        return s.str();
    };
    const double rate = 192000;
    const auto in = sine(static_cast<size_t>(0.05 * rate), 0.5, rate);
    auto tight = makeDriver(twoTriodes(solverAt(1e-10)), static_cast<float>(rate), 256);
    auto loose = makeDriver(twoTriodes(solverAt(1e-5)), static_cast<float>(rate), 256);
    const auto reference = render(*tight, in, {256});
    const auto y = render(*loose, in, {256});
    double worst = 0, lo = 1e9, hi = -1e9;
    for (size_t n = 0; n < y.size(); ++n) {
        worst = std::max(worst, static_cast<double>(std::fabs(y[n] - reference[n])));
        lo = std::min<double>(lo, reference[n]);
        hi = std::max<double>(hi, reference[n]);
    }
    std::printf("two triodes at 1e-5 against 1e-10: %.3g V of a %.3g V swing\n", worst, hi - lo);
    EXPECT_LT(worst, 1e-4 * (hi - lo));
}

TEST(SolversKernels, AnyBlockSplitGivesTheSameSamples) {
    const double rate = 96000;
    const auto in = sine(4000, 0.8, rate, 440);
    for (const std::string& doc : {twoTriodes(), readText(sourcePath("examples/baxandall.xml"))}) {
        auto whole = makeDriver(doc, static_cast<float>(rate), 256);
        auto split = makeDriver(doc, static_cast<float>(rate), 256);
        const auto a = render(*whole, in, {256});
        const auto b = render(*split, in, {1, 7, 256, 100, 2, 33});
        ASSERT_EQ(a.size(), b.size());
        size_t differing = 0;
        for (size_t n = 0; n < a.size(); ++n) differing += a[n] != b[n];
        EXPECT_EQ(0u, differing);
    }
}

TEST(SolversKernels, HighVoltageNodesKeepSmallSignals) {
    // 1 MOhm into 0.1 uF from a 27 V or 270 V supply with a 0.2 V, 1 kHz sine on it, at
    // 192 kHz, solved by Newton's method: the node settles at the supply and keeps the
    // ripple that the RC low-pass lets through (0.2 V / (2 pi 1 kHz 0.1 s), 0.64 mV
    // peak to peak), as the Linear solver does.
    const double rate = 192000;
    for (double supply : {27.0, 270.0}) {
        for (const char* solver : {"<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-5\" "
                                   "AbsoluteTollerance=\"1e-5\" MaxIterations=\"10\"/></Solver>",
                                   "<Solver Type=\"Linear\"/>"}) {
            std::ostringstream offset;
            offset << "InputNumber=\"0\" DCOffset=\"" << supply << "\"";
            const std::string graph =
                "<Graph Name=\"RC\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" "
                "Node=\"0\"/></Inputs>" +
                element("VoltageInputSource", "in", offset.str(), {"I", "GND"}) +
                element("Resistor", "R", "Resistance=\"1e6\"", {"I", "O"}) +
                element("Capacitor", "C", "Capacitance=\"0.1e-6\"", {"O", "GND"}) +
                "<Output><Node Name=\"O\"/></Output><Analysis Type=\"AC\"><InitialCondition Type=\"OperatingPoint\">"
                "<Solver Type=\"Linear\"/></InitialCondition>" +
                solver + "</Analysis></Graph>";
            auto d = makeDriver(systemDoc(graph, "<Output Graph=\"RC\" Node=\"O\"/>"), static_cast<float>(rate), 512);
            const auto in = sine(static_cast<size_t>(0.5 * rate), 0.2, rate);
            const auto y = render(*d, in, {512});
            // The last 10 periods.
            double lo = 1e9, hi = -1e9, mean = 0;
            const size_t last = static_cast<size_t>(10 * rate / 1000);
            for (size_t n = y.size() - last; n < y.size(); ++n) {
                lo = std::min<double>(lo, y[n]);
                hi = std::max<double>(hi, y[n]);
                mean += y[n];
            }
            mean /= last;
            const double expected = 2 * 0.2 / (2 * M_PI * 1000 * 0.1);
            std::printf("%.0f V, %s: mean %.5f V, ripple %.3f mV (expected %.3f mV)\n", supply,
                        std::string(solver).find("Linear") != std::string::npos ? "Linear" : "Newton", mean,
                        (hi - lo) * 1e3, expected * 1e3);
            EXPECT_NEAR(supply, mean, 1e-3);
            // The output is a float: its steps at 270 V are 3e-5 V.
            EXPECT_NEAR(expected, hi - lo, 0.1 * expected);
        }
    }
}
