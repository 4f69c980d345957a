// Fuzz target: any bytes as a SPICE netlist. The importer reads it (an .include of
// "parts.inc" finds a small file of subcircuits and models, any other fails); a
// description it gives is built by the engine and runs a few blocks on a sine with every
// control moved. The importer's and the engine's own exceptions are the only ways out.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "engine/KELMException.h"
#include "netlist/NetlistImporter.h"
#include "solvers/EngineTypes.h"

using namespace kelm;

namespace {

const char* kParts =
    ".subckt half in out r=1k\nR1 in out {r}\nR2 out 0 {r}\n.ends\n"
    ".subckt 12AX7 P G K\n.ends\n"
    ".model DX D(IS=1n N=1.8 RS=1)\n.model QX NPN(IS=1f BF=200 VAF=50)\n";

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    NetlistImporter::Options options;
    options.files = [](const std::string& path, std::string& content) {
        if (path != "parts.inc") return false;
        content = kParts;
        return true;
    };
    std::string document;
    try {
        document = NetlistImporter(options).import(text, "fuzz.cir").document;
    } catch (const KELMException&) {
        return 0;  // a netlist refused with its reason
    }
    // The engine's matrices are dense: large circuits are the importer's business only.
    if (count(document, "<Element ") > 48) return 0;
    const int block = 64;
    try {
        Driver driver;
        registerEngineTypes();
        driver.init(document);
        driver.setSampleRate(48000.0f);
        driver.setMaxBlockSize(block);
        const int channels = std::min(driver.getNumberOfInputs(), 8);
        std::vector<std::vector<scalar>> signal(channels, std::vector<scalar>(block));
        std::vector<scalar*> inputs(channels);
        for (int b = 0; b < 3; ++b) {
            for (int c = 0; c < channels; ++c) {
                for (int i = 0; i < block; ++i)
                    signal[c][i] = static_cast<scalar>(std::sin(0.05 * (b * block + i) + c));
                inputs[c] = signal[c].data();
            }
            if (b > 0)
                for (auto& control : driver.getControls()) control->setValue(b == 1 ? 1.0f : 0.0f);
            driver.process(inputs, block);
        }
    } catch (const KELMException&) {
    }
    return 0;
}
