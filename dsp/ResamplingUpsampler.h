#pragma once
#include "dsp/PolyphaseUpsampler.h"

namespace kelm {

// A polyphase upsampler that designs its own Kaiser-windowed low-pass from
// "Order", "Factor", "Attenuation" (dB) and a relative or absolute (Hz) corner.
class ResamplingUpsampler : public PolyphaseUpsampler {
public:
    const char* className() const override { return "ResamplingUpsampler"; }
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    using PolyphaseUpsampler::init;
    void sampleRateChanged(scalar rate) override;

private:
    void design(scalar corner);
    scalar relative = -1, absolute = -1;
    int order = 0;
    int designFactor = 0;
    scalar attenuation = 0;
    unsigned length = 0;
};

} // namespace kelm
