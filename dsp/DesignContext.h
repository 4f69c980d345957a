#pragma once
#include <memory>

#include "engine/Types.h"

namespace kelm {
namespace filterdesign {

// The request flags of a design; values are positions in a set of 15 flags.
enum Options {
    BIQUAD = 0,
    BESSEL = 1,
    BUTTERWORTH = 2,
    CHEBYSHEV = 3,
    LOWPASS = 4,
    HIGHPASS = 5,
    BANDPASS = 6,
    BANDSTOP = 7,
    ALLPASS = 8,
    NO_PREWARP = 13,
    MATCHED_Z = 14
};

// Result of a design: A holds the denominator without its leading 1, B the numerator.
struct DesignContext {
    virtual ~DesignContext() {}
    int order = 0;
    ScalarVectorPtr A;
    ScalarVectorPtr B;
};

} // namespace filterdesign
} // namespace kelm
