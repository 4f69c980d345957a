#include "dsp/Gain.h"

#include <cstring>

#include "math/DenseKernels.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

void Gain::readProperties(const PropertyMap& p) {
    p.readRequired("Gain", gain, KELMException("Gain is not defined. Gain name=" + elementName));
}

void Gain::propertyChanged(const std::string& name, scalar value) {
    if (name != "Gain") throw InvalidArgumentException("Gain: Invalid property name " + name);
    gain = value;
}

void Gain::process(const scalar* in, scalar* out, size_t n) {
    if (n == 0 || !out) return;
    if (!in)
        std::memset(out, 0, n * sizeof(scalar));
    else if (in != out)
        std::memmove(out, in, n * sizeof(scalar));
    scal(static_cast<int>(n), gain, out);
}

ScalarVector& Gain::iterate(const ScalarVectorPtr& inputs, int, int) {
    iterationResults[0] = gain * (*inputs)[0];
    return iterationResults;
}

void Gain::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
