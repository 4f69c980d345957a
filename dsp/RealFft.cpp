#include "dsp/RealFft.h"

#include <unsupported/Eigen/FFT>

namespace kelm {

struct RealFft::Impl {
    Eigen::FFT<float> fft;
    std::vector<float> time;
    std::vector<Complex> spectrum;
};

RealFft::RealFft(unsigned size) : impl(new Impl()), n(size) {
    impl->fft.SetFlag(Eigen::FFT<float>::HalfSpectrum);
    impl->fft.SetFlag(Eigen::FFT<float>::Unscaled);
    impl->time.assign(n, 0.0f);
    impl->spectrum.assign(n / 2 + 1, Complex(0, 0));
    // One transform each way builds the twiddles and scratch of this size now, not later.
    impl->fft.fwd(impl->spectrum.data(), impl->time.data(), static_cast<Eigen::Index>(n));
    impl->fft.inv(impl->time.data(), impl->spectrum.data(), static_cast<Eigen::Index>(n));
}

RealFft::~RealFft() {}

void RealFft::forward(const float* in, Complex* out) { impl->fft.fwd(out, in, static_cast<Eigen::Index>(n)); }

void RealFft::inverse(const Complex* in, float* out) { impl->fft.inv(out, in, static_cast<Eigen::Index>(n)); }

} // namespace kelm
