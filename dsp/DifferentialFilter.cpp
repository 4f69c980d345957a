#include "dsp/DifferentialFilter.h"

#include <algorithm>
#include <cstring>

#include "math/DenseKernels.h"
#include "dsp/DifferentialFilterMeta.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

DifferentialFilter::DifferentialFilter()
    : plusIndex(DifferentialFilterMeta::instance()->inputIndex("plus")),
      minusIndex(DifferentialFilterMeta::instance()->inputIndex("minus")) {}

ElementMetaPtr DifferentialFilter::getMeta() { return DifferentialFilterMeta::instance(); }

void DifferentialFilter::readProperties(const PropertyMap& p) {
    p.readRequired("Gain", gain, KELMException("Gain is not defined. DifferentialFilter name=" + elementName));
    if (p.readOptional("ConstantValueNode", constantNode)) {
        constantIndex = getMeta()->inputIndex(constantNode);
        p.readRequired("ConstantValue", constantValue,
                       KELMException("Missing value for constant value node " + constantNode));
        hasConstant = true;
    }
}

void DifferentialFilter::propertyChanged(const std::string& name, scalar value) {
    if (name != "Gain") throw InvalidArgumentException("DifferentialFilter: Invalid property name " + name);
    gain = value;
}

void DifferentialFilter::process(BufferList& inputs, BufferList& outs, size_t n) {
    scalar* out = outs[0];
    const int count = static_cast<int>(n);
    auto port = [&](int i) -> const scalar* { return i < static_cast<int>(inputs.size()) ? inputs[i] : nullptr; };
    if (!hasConstant) {
        const scalar* plus = port(plusIndex);
        const scalar* minus = port(minusIndex);
        if (!plus || !minus) {
            std::fill(out, out + n, 0.0f);
            return;
        }
        if (count >= 4) {
            std::memmove(out, plus, n * sizeof(scalar));
            scal(count, gain, out);
            axpy(count, -gain, minus, out);
        } else {
            for (int i = 0; i < count; ++i) out[i] = (plus[i] - minus[i]) * gain;
        }
    } else if (constantIndex != plusIndex) {
        const scalar* plus = port(plusIndex);
        if (count >= 4) {
            std::fill(out, out + n, -(constantValue * gain));
            if (plus) axpy(count, gain, plus, out);
        } else {
            for (int i = 0; i < count; ++i) out[i] = ((plus ? plus[i] : 0.0f) - constantValue) * gain;
        }
    } else {
        const scalar* minus = port(minusIndex);
        if (count >= 4) {
            std::fill(out, out + n, constantValue * gain);
            if (minus) axpy(count, -gain, minus, out);
        } else {
            for (int i = 0; i < count; ++i) out[i] = (constantValue - (minus ? minus[i] : 0.0f)) * gain;
        }
    }
}

ScalarVector& DifferentialFilter::iterate(const ScalarVectorPtr& inputs, int, int) {
    iterationResults[0] = ((*inputs)[0] - (*inputs)[1]) * gain;
    return iterationResults;
}

void DifferentialFilter::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
