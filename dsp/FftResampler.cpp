#include "dsp/FftResampler.h"

#include <cmath>
#include <complex>
#include <numeric>

#include <unsupported/Eigen/FFT>

namespace kelm {

FftResampler::FftResampler(double s, double d) : sourceRate(s), targetRate(d) {}

void FftResampler::feed(const double* in, size_t n) {
    std::lock_guard<std::mutex> lock(guard);
    input.insert(input.end(), in, in + n);
}

std::vector<double> FftResampler::finish(size_t length) {
    std::lock_guard<std::mutex> lock(guard);
    // Rates as a ratio of integers p/q (rates in hertz are whole numbers here; others are rounded).
    long s = std::lround(sourceRate), d = std::lround(targetRate);
    const long g = std::gcd(s, d);
    const long q = s / g, p = d / g;
    // Room against wrap-around: the signal plus a quarter, in a length divisible by q.
    const size_t want = input.size() + input.size() / 4 + 64;
    size_t N = (want + 2 * q - 1) / (2 * q) * (2 * q);
    const size_t M = N / q * p;
    std::vector<double> x(N, 0.0);
    std::copy(input.begin(), input.end(), x.begin());
    Eigen::FFT<double> fft;
    fft.SetFlag(Eigen::FFT<double>::HalfSpectrum);
    std::vector<std::complex<double>> X;
    fft.fwd(X, x);
    std::vector<std::complex<double>> Y(M / 2 + 1, 0.0);
    const size_t common = std::min(N, M) / 2;  // the lower Nyquist bin
    const size_t taper = std::max<size_t>(1, common / 20);
    for (size_t k = 0; k <= common && k < X.size(); ++k) {
        double w = 1.0;
        if (k + taper > common) w = 0.5 * (1 + std::cos(M_PI * (k + taper - common) / static_cast<double>(taper)));
        Y[k] = X[k] * w;
    }
    std::vector<double> y;
    fft.inv(y, Y, static_cast<Eigen::Index>(M));  // divides by M
    const double scale = static_cast<double>(M) / static_cast<double>(N);
    std::vector<double> out(length, 0.0);
    for (size_t i = 0; i < length && i < y.size(); ++i) out[i] = y[i] * scale;
    return out;
}

} // namespace kelm
