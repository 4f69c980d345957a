// Fuzz target: any bytes as Kelm Circuit's state (a VST 2 chunk, an LV2 state): a header with
// a document, or a document's text alone, XML or netlist. One effect takes every input, as a
// host's instance takes chunk after chunk: the state is set while suspended, the effect is
// resumed and runs a few blocks of noise with its slots moved. A refusal leaves the document
// that played; nothing may crash, hang or pass an exception out.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "plugin/core/CircuitEffect.h"

using namespace kelm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CircuitEffect* effect = [] {
        CircuitEffect* e = new CircuitEffect();
        e->setSampleRate(48000.0f);
        e->setBlockSize(64);
        return e;
    }();
    effect->suspend();
    effect->setState(data, size);
    effect->resume();
    std::vector<float> l(64), r(64), ol(64), orr(64);
    uint32_t seed = 12345;
    for (int b = 0; b < 3; ++b) {
        for (int i = 0; i < 64; ++i) {
            seed = seed * 1664525u + 1013904223u;
            l[i] = static_cast<float>(static_cast<int32_t>(seed)) / 2147483648.0f;
            r[i] = -l[i];
        }
        for (int p = 0; p < effect->numberOfParameters(); ++p)
            if (p != CircuitEffect::kOversampling) effect->setParameter(p, b == 1 ? 1.0f : 0.25f);
        float* in[2] = {l.data(), r.data()};
        float* out[2] = {ol.data(), orr.data()};
        effect->process(in, out, b == 2 ? 37 : 64);
    }
    return 0;
}
