#pragma once
#include "dsp/FixedOrderIIR.h"

namespace kelm {

// Second-order recursive filter: A = a1|a2, B = b0|b1|b2. A per-sample
// properties handler may rewrite its coefficients ahead of every sample.
class BiQuad : public FixedOrderIIR<2> {
public:
    const char* className() const override { return "BiQuad"; }

protected:
    bool perSampleHandlerInIteration() const override { return true; }
};

} // namespace kelm
