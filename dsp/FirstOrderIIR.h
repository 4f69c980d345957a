#pragma once
#include "dsp/FixedOrderIIR.h"

namespace kelm {

// First-order recursive filter: A = a1, B = b0|b1 (the DC blocker of the preamp).
class FirstOrderIIR : public FixedOrderIIR<1> {
public:
    const char* className() const override { return "FirstOrderIIR"; }
};

} // namespace kelm
