#include "cli/Measure.h"

#include <algorithm>
#include <cmath>
#include <complex>

#include "dsp/RealFft.h"

namespace kelm {
namespace cli {

namespace {

const double kPi = 3.14159265358979323846;

// Sum of x[n] e^(-i w n), with the phasor advanced by rotation in double.
std::complex<double> dft(const float* x, size_t n, double w) {
    const std::complex<double> step(std::cos(w), -std::sin(w));
    std::complex<double> phasor(1, 0), sum(0, 0);
    for (size_t i = 0; i < n; ++i) {
        sum += static_cast<double>(x[i]) * phasor;
        phasor *= step;
        if ((i & 1023) == 1023) phasor /= std::abs(phasor);  // keeps the rotation on the unit circle
    }
    return sum;
}

double decibels(double ratio) { return ratio > 0 ? std::max(-200.0, 20 * std::log10(ratio)) : -200.0; }

} // namespace

std::vector<float> Measure::run(Renderer& r, const std::vector<float>& input) {
    std::vector<float> out(input.size()), block(kBlock);
    std::vector<float*> inputs(std::max(r.numberOfInputs(), 0), block.data());
    for (size_t at = 0; at < input.size(); at += kBlock) {
        const size_t n = std::min<size_t>(kBlock, input.size() - at);
        std::copy(input.begin() + at, input.begin() + at + n, block.begin());
        const std::vector<float*>& outs = r.process(inputs, n);
        if (!outs.empty() && outs[0]) std::copy(outs[0], outs[0] + n, out.begin() + at);
    }
    return out;
}

Measure::Response Measure::response(Renderer& r, double rate, double amplitude, int points) {
    run(r, std::vector<float>(static_cast<size_t>(rate * 0.5), 0.0f));
    Response result;
    const double lo = 20, hi = std::min(20000.0, 0.48 * rate);
    double phaseNow = 0, previous = 0;
    std::vector<float> x;
    std::vector<double> angle;
    for (int k = 0; k < points; ++k) {
        const double f = lo * std::pow(hi / lo, k / (points - 1.0)), w = 2 * kPi * f / rate;
        const size_t span = static_cast<size_t>(std::ceil(std::max(0.05 * rate, 5 * rate / f)));
        x.resize(2 * span);
        angle.resize(2 * span);
        for (size_t i = 0; i < x.size(); ++i) {
            angle[i] = phaseNow;
            x[i] = static_cast<float>(amplitude * std::sin(phaseNow));
            phaseNow = std::fmod(phaseNow + w, 2 * kPi);
        }
        const std::vector<float> y = run(r, x);
        // Least squares for y = a cos + b sin + c over the second half: the normal equations.
        double m[3][4] = {};
        for (size_t i = span; i < y.size(); ++i) {
            const double basis[3] = {std::cos(angle[i]), std::sin(angle[i]), 1.0};
            for (int row = 0; row < 3; ++row) {
                for (int col = 0; col < 3; ++col) m[row][col] += basis[row] * basis[col];
                m[row][3] += basis[row] * y[i];
            }
        }
        for (int p = 0; p < 3; ++p)  // Gauss-Jordan; the matrix is well conditioned over >= 5 periods
            for (int row = 0; row < 3; ++row) {
                if (row == p) continue;
                const double factor = m[row][p] / m[p][p];
                for (int col = p; col < 4; ++col) m[row][col] -= factor * m[p][col];
            }
        const double a = m[0][3] / m[0][0], b = m[1][3] / m[1][1];
        // y = |H| A sin(angle + theta) = |H| A (cos theta sin + sin theta cos)
        const std::complex<double> value(b / amplitude, a / amplitude);
        double phase = std::arg(value) * 180 / kPi;
        if (k > 0) {
            while (phase - previous > 180) phase -= 360;
            while (phase - previous < -180) phase += 360;
        }
        previous = phase;
        result.frequency.push_back(f);
        result.magnitude.push_back(decibels(std::abs(value)));
        result.phase.push_back(phase);
    }
    // The whole curve moves by turns so that its mean lies in [-270, 90): an inverting system
    // reads about -180, and the curves of a family land on the same branch.
    double mean = 0;
    for (double p : result.phase) mean += p / points;
    const double turns = std::floor((mean + 270) / 360);
    for (double& p : result.phase) p -= 360 * turns;
    return result;
}

Measure::Curve Measure::curve(Renderer& r, double rate, double maxLevel, int levels) {
    Curve c;
    const int period = std::max(8, static_cast<int>(std::lround(rate / 1000)));  // whole samples per period
    c.frequency = rate / period;
    const size_t settle = static_cast<size_t>(rate * 0.2), measured = static_cast<size_t>(period) * 100;
    std::vector<float> input(settle + measured);
    for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<float>(std::sin(2 * kPi * (i % period) / period));
    std::vector<float> x(input.size());
    for (int l = 1; l <= levels; ++l) {
        const double a = maxLevel * l / levels;
        for (size_t i = 0; i < input.size(); ++i) x[i] = static_cast<float>(a * input[i]);
        const std::vector<float> y = run(r, x);
        const float* window = y.data() + settle;
        const double fundamental = std::abs(dft(window, measured, 2 * kPi / period));
        c.inputLevel.push_back(a);
        c.outputLevel.push_back(2 * fundamental / measured);
        // Without a fundamental to speak of (a silenced output) the harmonics have no level.
        const bool audible = 2 * fundamental / measured > 1e-7 * a;
        for (int k = 2; k <= 5; ++k) {
            const bool belowNyquist = 2 * k < period && audible;
            const double hk = belowNyquist ? std::abs(dft(window, measured, 2 * kPi * k / period)) : 0;
            c.harmonics[k - 2].push_back(belowNyquist ? decibels(hk / fundamental) : NAN);
        }
    }
    return c;
}

std::vector<float> Measure::sineThrough(Renderer& r, double rate, double amplitude) {
    run(r, std::vector<float>(static_cast<size_t>(rate * 0.5), 0.0f));
    const double bin = std::max(1.0, std::round(1000.0 * kSpectrumSize / rate));
    std::vector<float> x(static_cast<size_t>(rate));
    for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(amplitude * std::sin(2 * kPi * bin * i / kSpectrumSize));
    return run(r, x);
}

Measure::Spectrum Measure::spectrum(const std::vector<float>& signal, double rate) {
    unsigned size = kSpectrumSize;
    while (size > 256 && size > signal.size()) size /= 2;
    std::vector<float> window(size), segment(size);
    double windowSum = 0;
    for (unsigned i = 0; i < size; ++i) {
        window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2 * kPi * i / size));
        windowSum += window[i];
    }
    RealFft fft(size);
    std::vector<RealFft::Complex> bins(fft.bins());
    std::vector<double> power(fft.bins(), 0.0);
    int segments = 0;
    for (size_t at = 0; at == 0 || at + size <= signal.size(); at += size / 2) {
        for (unsigned i = 0; i < size; ++i) segment[i] = at + i < signal.size() ? signal[at + i] * window[i] : 0.0f;
        fft.forward(segment.data(), bins.data());
        // Scaled so that a sine of amplitude 1 on a bin reads 0 dB.
        for (unsigned k = 0; k < bins.size(); ++k) power[k] += std::norm(std::complex<double>(bins[k]) * (2 / windowSum));
        ++segments;
    }
    Spectrum s;
    for (unsigned k = 1; k < bins.size(); ++k) {
        s.frequency.push_back(k * rate / size);
        s.level.push_back(power[k] > 0 ? std::max(-240.0, 10 * std::log10(power[k] / segments)) : -240.0);
    }
    return s;
}

} // namespace cli
} // namespace kelm
