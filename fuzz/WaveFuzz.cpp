// Fuzz target: any bytes as a wave file, read as a convolver reads an impulse response,
// including the resampling to the system's rate. Only the engine's exceptions may come out.
#include <cstddef>
#include <cstdint>

#include "dsp/WaveConvolver.h"
#include "engine/KELMException.h"

using namespace kelm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        float rate = 0;
        ScalarVector samples = WaveConvolver::decode(reinterpret_cast<const char*>(data), size, rate);
        if (!samples.empty() && rate != 48000.0f) WaveConvolver::resample(samples.data(), samples.size(), rate, 48000.0);
    } catch (const KELMException&) {
    }
    return 0;
}
