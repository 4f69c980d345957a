#include "dsp/FftResampler.h"

#include <cmath>
#include <algorithm>
#include <complex>
#include <numeric>

#include <unsupported/Eigen/FFT>

namespace kelm {

namespace {
// Whether n has no prime factor above 7.
bool smooth(long n) {
    for (long f : {2L, 3L, 5L, 7L})
        while (n % f == 0) n /= f;
    return n == 1;
}
} // namespace

FftResampler::FftResampler(double s, double d) : sourceRate(s), targetRate(d) {}

void FftResampler::feed(const double* in, size_t n) {
    std::lock_guard<std::mutex> lock(guard);
    input.insert(input.end(), in, in + n);
}

std::vector<double> FftResampler::finish(size_t length) {
    std::lock_guard<std::mutex> lock(guard);
    // Rates as a ratio of integers p/q (rates in hertz are whole numbers here; others are rounded).
    long s = std::max(1L, std::lround(sourceRate)), d = std::max(1L, std::lround(targetRate));
    const long g = std::gcd(s, d);
    long q = s / g, p = d / g;
    // Both FFT lengths carry the factors of q and p, and a large prime among them sends the FFT
    // to its generic butterfly, quadratic in that prime: a file at 44071 Hz took over a minute.
    // Such a ratio is replaced by the nearest one of 7-smooth numbers with q up to 2^16, which
    // moves the pitch by a few hundredths of a percent at most for rates of audio files.
    // So is a ratio whose terms pass 2^16: the first FFT is at least 2q long, and a file that
    // claims 2^32 Hz (q = 2^25 against 48 kHz) would ask for gigabytes.
    if (!smooth(p) || !smooth(q) || p > 65536 || q > 65536) {
        const double ratio = targetRate / sourceRate;
        double best = -1;
        long bestP = 1, bestQ = 1;
        for (long qq = 1; qq <= 65536; ++qq) {
            if (!smooth(qq)) continue;
            const long pp = std::max(1L, std::lround(ratio * qq));
            if (!smooth(pp)) continue;
            const double error = std::fabs(static_cast<double>(pp) / qq - ratio);
            if (best < 0 || error < best) {
                best = error;
                bestP = pp;
                bestQ = qq;
            }
        }
        p = bestP;
        q = bestQ;
    }
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
