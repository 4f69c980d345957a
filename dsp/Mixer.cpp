#include "dsp/Mixer.h"

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

Mixer::Mixer() : meta(std::make_shared<MixerMeta>()), faders(std::make_shared<ScalarVector>()) {}

void Mixer::readProperties(const PropertyMap& p) {
    p.readRequired("Faders", faders, InvalidArgumentException("Faders is not defined. Mixer name=" + elementName));
    if (faders->size() < 2)
        throw InvalidArgumentException(str("Number of Faders must be at least 2. Number of Faders: ", faders->size(),
                                           " Mixer name=", elementName));
    for (scalar v : *faders)
        if (!(v >= 0.0f && v <= 1.0f)) throw InvalidArgumentException(str("Invalid fader value: ", v));
}

void Mixer::propertyChanged(const std::string& name, scalar value) {
    int index = Conversions::toInt(name);
    if (index < 0 || index >= static_cast<int>(faders->size()))
        throw InvalidArgumentException("Mixer: Invalid fader index " + name);
    (*faders)[index] = value;
}

void Mixer::process(BufferList& inputs, BufferList& outs, size_t n) {
    scalar* out = outs[0];
    const size_t count = std::min(inputs.size(), faders->size());
    for (size_t i = 0; i < n; ++i) {
        out[i] = 0.0f;
        for (size_t k = 0; k < count; ++k)
            if (inputs[k]) out[i] = out[i] + inputs[k][i] * (*faders)[k];
    }
}

ScalarVector& Mixer::iterate(const ScalarVectorPtr& inputs, int, int) {
    // Deliberately not cleared first: the result accumulates over iterations.
    for (size_t k = 0; k < faders->size() && k < inputs->size(); ++k)
        iterationResults[0] = iterationResults[0] + (*faders)[k] * (*inputs)[k];
    return iterationResults;
}

void Mixer::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
