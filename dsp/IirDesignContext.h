#pragma once
#include <bitset>
#include <memory>

#include "dsp/DesignContext.h"

namespace kelm {
namespace filterdesign {

// A validated request for a low-pass IIR design: family (BESSEL, BUTTERWORTH
// or CHEBYSHEV), order and corner fc1 as a fraction of the sample rate.
struct IirDesignContext : public DesignContext {
    IirDesignContext(int family, int order, double fc1);
    std::bitset<15> options;
    double fc1 = 0;
    double fc2 = 0;
    double ripple = 0;
};

// Designs the request in double precision and fills its A and B.
// Validation failures throw the standard library's exceptions.
void designIir(const std::shared_ptr<IirDesignContext>& request);

} // namespace filterdesign
} // namespace kelm
