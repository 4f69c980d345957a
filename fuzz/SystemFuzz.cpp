// Fuzz target: any bytes as a system description. The document is parsed and built with the
// plug-in's element factories, then runs a few blocks on noise, with every control moved
// between blocks. The engine's own exceptions are the only way out it may take.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "engine/KELMException.h"
#include "engine/SystemInfo.h"
#include "solvers/EngineTypes.h"

using namespace kelm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string document(reinterpret_cast<const char*>(data), size);
    const int block = 64;
    try {
        Driver driver;
        registerEngineTypes();
        driver.init(document);
        driver.setSampleRate(48000.0f);
        driver.setMaxBlockSize(block);
        // A host gives at most a handful of channels; inputs past them reach the graphs as null.
        const int channels = std::min(driver.getNumberOfInputs(), 8);
        std::vector<std::vector<scalar>> signal(channels, std::vector<scalar>(block));
        std::vector<scalar*> inputs(channels);
        uint32_t seed = 12345;
        for (int b = 0; b < 4; ++b) {
            for (int c = 0; c < channels; ++c) {
                for (scalar& x : signal[c]) {
                    seed = seed * 1664525u + 1013904223u;
                    x = static_cast<scalar>(static_cast<int32_t>(seed)) / 2147483648.0f;
                }
                inputs[c] = signal[c].data();
            }
            if (b == 1 || b == 2)
                for (auto& control : driver.getControls()) control->setValue(b == 1 ? 1.0f : 0.0f);
            driver.process(inputs, b == 3 ? block / 2 : block);
        }
    } catch (const KELMException&) {
        // a clear refusal of a bad document is the expected answer
    }
    return 0;
}
