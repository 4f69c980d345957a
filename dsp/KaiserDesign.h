#pragma once
#include <vector>

#include "engine/Types.h"

namespace kelm {

// Kaiser-windowed sinc low-pass for the resampling elements.
class KaiserDesign {
public:
    // Modified Bessel function I0 by the polynomial approximations of
    // Abramowitz and Stegun (9.8.1 below 3.75, 9.8.2 above).
    static double besselI0(double x);
    // order taps, corner as a fraction of the (high) sample rate, stop-band attenuation in dB;
    // the taps sum to 1.
    static std::vector<scalar> lowpass(int order, scalar corner, scalar attenuation, int factor);
};

} // namespace kelm
