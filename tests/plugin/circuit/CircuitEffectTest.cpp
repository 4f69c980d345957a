// Kelm Circuit's effect core: what it plays against the engine's own render, its parameters,
// channels, levels and oversampling, its state, and the documents it refuses.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "dsp/IirDecimator.h"
#include "dsp/IirInterpolator.h"
#include "plugin/core/BuiltInExamples.h"
#include "plugin/core/CircuitDocument.h"
#include "plugin/core/CircuitState.h"
#include "plugin/core/DocumentError.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

using namespace kelm;
using namespace kelm::test;
using namespace kelm::test::circuit;

namespace {

const double kRate = 48000;
const int kBlock = 512;

std::string example(const char* name) { return readText(sourcePath(std::string("examples/") + name)); }

DocumentError::Kind kindOf(const std::string& text, const std::string& name) {
    try {
        CircuitDocument d(text, name, CircuitDocument::Settings());
    } catch (const DocumentError& e) {
        return e.kind();
    }
    ADD_FAILURE() << name << " was accepted";
    return DocumentError::Build;
}

// A description of one resistor divider repeated n times (n elements each).
std::string ladder(int n) {
    auto resistor = [](const std::string& name, const std::string& a, const std::string& b) {
        return "<Element Type=\"Resistor\" Name=\"" + name + "\"><Properties Resistance=\"1000\"/><Node Name=\"" + a +
               "\"/><Node Name=\"" + b + "\"/></Element>";
    };
    std::string elements = element("VoltageInputSource", "in", "InputNumber=\"0\"", {"n0", "GND"});
    for (int i = 0; i < n; ++i) elements += resistor("R" + std::to_string(i), "n" + std::to_string(i), "n" + std::to_string(i + 1));
    elements += resistor("Rend", "n" + std::to_string(n), "GND");
    return systemDoc("<Graph Name=\"L\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" "
                     "Node=\"0\"/></Inputs>" +
                         elements + "<Output><Node Name=\"n1\"/></Output></Graph>",
                     "<Output Graph=\"L\" Node=\"n1\"/>");
}

} // namespace

// At the defaults the effect gives what the engine gives for the same document, channel by
// channel: a one-input document runs once per side, a netlist is imported for the rate.
TEST(KelmCircuitEffect, PlaysAsTheEngineRendersAtTheDefaults) {
    const auto in = testSignal(24000, kRate);
    struct Case {
        const char* file;
        std::string text;
        double tolerance;
    };
    const std::vector<Case> cases = {
        {"triode-stage.xml", example("triode-stage.xml"), 1e-6},
        {"baxandall.xml", example("baxandall.xml"), 1e-6},
        {"tonestack.cir", readText(sourcePath("tests/data/netlist/tonestack.cir")), 1e-6},
        {"fuzz-face.xml", example("fuzz-face.xml"), 1e-5},
    };
    for (const Case& c : cases) {
        CircuitEffect e;
        startWith(e, c.text);
        const auto got = effectRender(e, in, kBlock);
        const auto left = engineRender(c.text, c.file, {in[0], in[0]}, kRate, kBlock);
        const auto right = engineRender(c.text, c.file, {in[1], in[1]}, kRate, kBlock);
        EXPECT_LE(relativeDifference(got[0], left[0]), c.tolerance) << c.file;
        EXPECT_LE(relativeDifference(got[1], right[0]), c.tolerance) << c.file;
        EXPECT_GT(peak(left[0]), 0.0f) << c.file;
    }
}
