#pragma once
#include <complex>
#include <memory>
#include <vector>

namespace kelm {

// The one seam to the FFT: single-precision real transforms of a fixed size
// (products of 2, 3 and 5), unnormalised. Backed by Eigen's FFT module; set-up
// allocates, the transforms do not.
class RealFft {
public:
    typedef std::complex<float> Complex;
    explicit RealFft(unsigned size);
    ~RealFft();
    unsigned size() const { return n; }
    unsigned bins() const { return n / 2 + 1; }
    // in: size() samples; out: bins() values.
    void forward(const float* in, Complex* out);
    // in: bins() values; out: size() samples, not divided by size().
    void inverse(const Complex* in, float* out);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
    unsigned n;
};

} // namespace kelm
