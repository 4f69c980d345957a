// A test DLL that runs any system description with the engine inside a module of its
// own, so that resources with Location="Dll" are read from the DLL that holds the
// code (not from the program that loaded it). Exports kelmProbeRender only.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "engine/KELMException.h"
#include "engine/SystemInfo.h"
#include "solvers/EngineTypes.h"

namespace {
void copyError(const std::string& text, char* error, int size) {
    if (!error || size < 1) return;
    const size_t n = std::min(text.size(), static_cast<size_t>(size - 1));
    std::memcpy(error, text.data(), n);
    error[n] = 0;
}
} // namespace

// Renders `frames` samples of one input channel through the document's first output,
// in blocks of `block` at `rate` Hz. Returns 0, or 1 with the engine's message in error.
extern "C" int kelmProbeRender(const char* document, const float* in, float* out, int frames, float rate, int block,
                               char* error, int errorSize) {
    try {
        auto driver = std::make_shared<kelm::Driver>();
        kelm::registerEngineTypes();
        driver->init(document);
        driver->setSampleRate(rate);
        driver->setMaxBlockSize(block);
        std::vector<float> buffer(block);
        std::vector<float*> inputs(std::max(driver->getNumberOfInputs(), 1), buffer.data());
        for (int at = 0; at < frames; at += block) {
            const int n = std::min(block, frames - at);
            std::copy(in + at, in + at + n, buffer.begin());
            driver->process(inputs, n);
            std::copy(driver->getResults()[0], driver->getResults()[0] + n, out + at);
        }
        return 0;
    } catch (const kelm::KELMException& e) {
        copyError(e.message(), error, errorSize);
    } catch (const std::exception& e) {
        copyError(e.what(), error, errorSize);
    } catch (...) {
        copyError("unknown failure", error, errorSize);
    }
    return 1;
}
