// Run-time IIR design in the pole-zero domain: analogue prototype poles,
// frequency transformation, mapping to the z plane, polynomial expansion and
// normalisation of the gain. All in double precision.
#include <cmath>
#include <complex>
#include <memory>
#include <stdexcept>

#include "dsp/IirDesignContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {
namespace filterdesign {

namespace {

typedef std::complex<double> complex;
const double kPi = 3.14159265358979323846;
const int kMax = 512;

enum : unsigned {
    F_BESSEL = 0x1,
    F_BUTTERWORTH = 0x2,
    F_CHEBYSHEV = 0x4,
    F_RESONATOR = 0x8,
    F_PI = 0x10,
    F_LOWPASS = 0x20,
    F_HIGHPASS = 0x40,
    F_BANDPASS = 0x80,
    F_BANDSTOP = 0x100,
    F_ALLPASS = 0x200,
    F_CORNER = 0x400,
    F_ORDER = 0x1000,
    F_POLEMASK = 0x2000,
    F_NOPREWARP = 0x4000,
    F_MATCHEDZ = 0x8000,
    F_ZEROPAIR = 0x10000
};

// The designer's working record.
struct FilterSpec {
    int order = 0;
    double alpha1 = 0, alpha2 = 0, alphaZ = 0;
    unsigned flags = 0;
    unsigned poleMask = 0;
    double ripple = 0;
    double qFactor = 0;
    bool infiniteQ = false;
    complex sPoles[kMax], sZeros[kMax];
    int sPoleCount = 0, sZeroCount = 0;
    complex zPoles[kMax], zZeros[kMax];
    int zPoleCount = 0, zZeroCount = 0;
    complex dcGain, fcGain, hfGain;
    double warped1 = 0, warped2 = 0;
    double xCoefficients[kMax + 1] = {};
    double yCoefficients[kMax + 1] = {};
};

const double kBessel[30][2] = {
    {-1.0, 0.0}, {-1.10160133059, 0.636009824757}, {-1.32267579991, 0.0}, {-1.04740916101, 0.999264436281},
    {-1.37006783055, 0.410249717494}, {-0.99520876435, 1.25710573945}, {-1.50231627145, 0.0},
    {-1.38087732586, 0.717909587627}, {-0.957676548563, 1.47112432073}, {-1.57149040362, 0.320896374221},
    {-1.3818580976, 0.971471890712}, {-0.930656522947, 1.66186326894}, {-1.68436817927, 0.0},
    {-1.61203876622, 0.589244506931}, {-1.3789032168, 1.1915667778}, {-0.909867780623, 1.83645135304},
    {-1.7574084004, 0.272867575103}, {-1.63693941813, 0.822795625139}, {-1.37384121764, 1.38835657588},
    {-0.892869718847, 1.99832584364}, {-1.85660050123, 0.0}, {-1.80717053496, 0.512383730575},
    {-1.65239648458, 1.03138956698}, {-1.36758830979, 1.56773371224}, {-0.878399276161, 2.14980052431},
    {-1.92761969145, 0.241623471082}, {-1.84219624443, 0.727257597722}, {-1.6618102414, 1.22110021857},
    {-1.36069227838, 1.73350574267}, {-0.865756901707, 2.29260483098}};

int bitCount(unsigned v) {
    int n = 0;
    for (; v; v &= v - 1) ++n;
    return n;
}

complex csqrt(complex z) {
    const double r = std::abs(z);
    const double re = std::max(0.0, (r + z.real()) / 2);
    const double im = std::max(0.0, (r - z.real()) / 2);
    return complex(std::sqrt(re), z.imag() < 0 ? -std::sqrt(im) : std::sqrt(im));
}

complex horner(const complex* coeffs, int degree, complex z) {
    complex sum = 0;
    for (int i = degree; i >= 0; --i) sum = sum * z + coeffs[i];
    return sum;
}

// Product of (z - root) in ascending powers.
void expand(const complex* roots, int count, complex* coeffs) {
    coeffs[0] = 1;
    for (int i = 1; i <= count; ++i) coeffs[i] = 0;
    for (int i = 0; i < count; ++i) {
        for (int j = i + 1; j > 0; --j) coeffs[j] = coeffs[j - 1] - roots[i] * coeffs[j];
        coeffs[0] = -roots[i] * coeffs[0];
    }
    for (int i = 0; i <= count; ++i)
        if (std::fabs(coeffs[i].imag()) > 1e-10) throw std::runtime_error("poles/zeros not complex conjugates");
}

void validate(FilterSpec& s) {
    const unsigned f = s.flags;
    if (bitCount(f & 0x1f) != 1) throw std::invalid_argument("missing filter design method");
    if (f & F_RESONATOR) {
        if (bitCount(f & 0x380) != 1) throw std::invalid_argument("missing resonator type");
        if (f & 0xf060) throw std::invalid_argument("options incompatible with 2-pole resonator filter");
    } else if (f & F_PI) {
        if (f & 0x3e0) throw std::invalid_argument("options incompatible with proportional integrator");
        if (!(f & F_ORDER) || s.order != 1) throw std::out_of_range("proportional integrator allows only order of 1");
    } else {
        if (bitCount(f & 0x1e0) != 1) throw std::invalid_argument("missing filter type");
        if (f & F_ALLPASS) throw std::invalid_argument("allpass characteristic avaialable only with 2-pole resonator");
        if (!(f & F_ORDER)) throw std::invalid_argument("missing filter order");
        if (s.order < 1 || s.order > 10) throw std::out_of_range("filter order out of range");
        if ((f & F_POLEMASK) && (s.poleMask >> s.order) != 0) throw std::out_of_range("selected poles out of range");
    }
    if (!(f & F_CORNER)) throw std::invalid_argument("missing normalized corner frequency");
}

void addCandidate(FilterSpec& s, complex p) {
    if (p.real() < 0) {
        if (s.poleMask & 1) s.sPoles[s.sPoleCount++] = p;
        s.poleMask >>= 1;
    }
}

void prototype(FilterSpec& s) {
    const int N = s.order;
    if (s.flags & F_BESSEL) {
        int p = (N * N) / 4;
        if (N & 1) addCandidate(s, complex(kBessel[p][0], kBessel[p][1])), ++p;
        for (int i = 0; i < N / 2; ++i, ++p) {
            addCandidate(s, complex(kBessel[p][0], kBessel[p][1]));
            addCandidate(s, complex(kBessel[p][0], -kBessel[p][1]));
        }
    } else {
        for (int i = 0; i < 2 * N; ++i) {
            const double theta = ((N & 1) ? i * kPi : (i + 0.5) * kPi) / N;
            addCandidate(s, std::polar(1.0, theta));
        }
        if (s.flags & F_CHEBYSHEV) {
            if (s.ripple >= 0) throw std::invalid_argument("Chebyshev ripple must be < 0");
            const double rip = std::pow(10.0, -s.ripple / 10);
            const double eps = std::sqrt(rip - 1);
            const double v = 1 / eps;
            const double y = std::log(v + std::sqrt(v * v + 1)) / N;
            if (!(y > 0)) throw std::invalid_argument("Chebyshev y must be > 0");
            for (int i = 0; i < s.sPoleCount; ++i)
                s.sPoles[i] = complex(s.sPoles[i].real() * std::sinh(y), s.sPoles[i].imag() * std::cosh(y));
        }
    }
}

void prewarp(FilterSpec& s) {
    if (s.flags & (F_NOPREWARP | F_MATCHEDZ)) {
        s.warped1 = s.alpha1;
        s.warped2 = s.alpha2;
    } else {
        s.warped1 = std::tan(kPi * s.alpha1) / kPi;
        s.warped2 = std::tan(kPi * s.alpha2) / kPi;
    }
}

void transform(FilterSpec& s) {
    const double w1 = 2 * kPi * s.warped1, w2 = 2 * kPi * s.warped2;
    const int n = s.sPoleCount;
    if (s.flags & F_LOWPASS) {
        for (int i = 0; i < n; ++i) s.sPoles[i] *= w1;
        s.sZeroCount = 0;
    } else if (s.flags & F_HIGHPASS) {
        for (int i = 0; i < n; ++i) s.sPoles[i] = w1 / s.sPoles[i];
        for (int i = 0; i < n; ++i) s.sZeros[i] = 0;
        s.sZeroCount = n;
    } else {
        const double w0 = std::sqrt(w1 * w2), bw = w2 - w1;
        const bool stop = (s.flags & F_BANDSTOP) != 0;
        for (int i = 0; i < n; ++i) {
            const complex hba = stop ? 0.5 * bw / s.sPoles[i] : 0.5 * bw * s.sPoles[i];
            const complex t = csqrt(1.0 - (w0 / hba) * (w0 / hba));
            s.sPoles[i] = hba * (1.0 + t);
            s.sPoles[n + i] = hba * (1.0 - t);
        }
        if (stop) {
            for (int i = 0; i < n; ++i) {
                s.sZeros[2 * i] = complex(0, w0);
                s.sZeros[2 * i + 1] = complex(0, -w0);
            }
            s.sZeroCount = 2 * n;
        } else {
            for (int i = 0; i < n; ++i) s.sZeros[i] = 0;
            s.sZeroCount = n;
        }
        s.sPoleCount = 2 * n;
    }
}

void mapToZ(FilterSpec& s) {
    s.zPoleCount = s.sPoleCount;
    s.zZeroCount = s.sZeroCount;
    if (s.flags & F_MATCHEDZ) {
        for (int i = 0; i < s.zPoleCount; ++i) s.zPoles[i] = std::exp(s.sPoles[i]);
        for (int i = 0; i < s.zZeroCount; ++i) s.zZeros[i] = std::exp(s.sZeros[i]);
    } else {
        for (int i = 0; i < s.zPoleCount; ++i) s.zPoles[i] = (2.0 + s.sPoles[i]) / (2.0 - s.sPoles[i]);
        for (int i = 0; i < s.zZeroCount; ++i) s.zZeros[i] = (2.0 + s.sZeros[i]) / (2.0 - s.sZeros[i]);
        while (s.zZeroCount < s.zPoleCount) s.zZeros[s.zZeroCount++] = -1.0;
    }
}

void resonator(FilterSpec& s) {
    s.zPoleCount = s.zZeroCount = 2;
    s.zZeros[0] = 1.0;
    s.zZeros[1] = -1.0;
    const double theta = 2 * kPi * s.alpha1;
    if (s.infiniteQ) {
        s.zPoles[0] = std::polar(1.0, theta);
        s.zPoles[1] = std::polar(1.0, -theta);
    } else {
        const double r = std::exp(-theta / (2 * s.qFactor));
        double thm = theta, th1 = 0, th2 = kPi;
        bool converged = false;
        complex top[3], bottom[3];
        for (int it = 0; it < 50 && !converged; ++it) {
            s.zPoles[0] = std::polar(r, thm);
            s.zPoles[1] = std::polar(r, -thm);
            expand(s.zZeros, 2, top);
            expand(s.zPoles, 2, bottom);
            const complex z = std::polar(1.0, theta);
            const complex g = horner(top, 2, z) / horner(bottom, 2, z);
            const double phi = g.imag() / g.real();
            if (phi > 0)
                th2 = thm;
            else
                th1 = thm;
            if (std::fabs(phi) < 1e-10) converged = true;
            thm = (th1 + th2) / 2;
        }
        if (!converged) throw std::runtime_error("failed to converge");
    }
    if (s.flags & F_BANDSTOP) {
        s.zZeros[0] = std::polar(1.0, theta);
        s.zZeros[1] = std::polar(1.0, -theta);
    } else if (s.flags & F_ALLPASS) {
        for (int i = 0; i < 2; ++i) s.zZeros[i] = s.zPoles[i] / std::norm(s.zPoles[i]);
    }
}

void core(FilterSpec& s) {
    validate(s);
    if (!(s.flags & F_POLEMASK)) s.poleMask = ~0u;
    if (!(s.flags & (F_BANDPASS | F_BANDSTOP))) s.alpha2 = s.alpha1;
    if (s.flags & F_RESONATOR) {
        resonator(s);
    } else {
        if (s.flags & F_PI) {
            prewarp(s);
            s.sPoleCount = 1;
            s.sPoles[0] = 0;
            s.sZeroCount = 1;
            s.sZeros[0] = -2 * kPi * s.warped1;
        } else {
            prototype(s);
            prewarp(s);
            transform(s);
        }
        mapToZ(s);
    }
    if (s.flags & F_ZEROPAIR) {
        if (s.zZeroCount + 2 > kMax) throw std::runtime_error("too many zeros");
        s.zZeros[s.zZeroCount++] = std::polar(1.0, 2 * kPi * s.alphaZ);
        s.zZeros[s.zZeroCount++] = std::polar(1.0, -2 * kPi * s.alphaZ);
        while (s.zPoleCount < s.zZeroCount) s.zPoles[s.zPoleCount++] = 0;
    }
    std::unique_ptr<complex[]> top(new complex[kMax + 1]), bottom(new complex[kMax + 1]);
    expand(s.zZeros, s.zZeroCount, top.get());
    expand(s.zPoles, s.zPoleCount, bottom.get());
    s.dcGain = horner(top.get(), s.zZeroCount, 1.0) / horner(bottom.get(), s.zPoleCount, 1.0);
    const complex fc = std::polar(1.0, kPi * (s.alpha1 + s.alpha2));
    s.fcGain = horner(top.get(), s.zZeroCount, fc) / horner(bottom.get(), s.zPoleCount, fc);
    s.hfGain = horner(top.get(), s.zZeroCount, -1.0) / horner(bottom.get(), s.zPoleCount, -1.0);
    const double norm = bottom[s.zPoleCount].real();
    for (int i = 0; i <= s.zZeroCount; ++i) s.xCoefficients[i] = top[i].real() / norm;
    for (int i = 0; i <= s.zPoleCount; ++i) s.yCoefficients[i] = -(bottom[i].real() / norm);
}

} // namespace

IirDesignContext::IirDesignContext(int family, int order_, double fc1_) {
    if (family != BESSEL && family != BUTTERWORTH && family != CHEBYSHEV)
        throw InvalidArgumentException(
            "IirDesignContext: family must be one of the following: BESSEL, BUTTERWORTH, CHEBYSHEV.");
    options.set(family);
    options.set(LOWPASS);
    order = order_;
    fc1 = fc1_;
    fc2 = 0;
    ripple = 0;
    if (options.test(CHEBYSHEV) && !(ripple < 0))
        throw InvalidArgumentException("IirDesignContext: ripple must be less than zero.");
    if (!(fc1 > 0 && fc1 < 0.5)) throw InvalidArgumentException("IirDesignContext: fc1 must be (0, 0.5).");
    if ((options.test(BANDPASS) || options.test(BANDSTOP)) && !(fc2 > 0 && fc2 < 0.5))
        throw InvalidArgumentException("IirDesignContext: fc2 must be (0, 0.5).");
    if (order == 0) throw InvalidArgumentException(str("DesignContext: Invalid filter order: ", order));
}

void designIir(const std::shared_ptr<IirDesignContext>& request) {
    std::unique_ptr<FilterSpec> spec(new FilterSpec());
    FilterSpec& s = *spec;
    const auto& o = request->options;
    if (o.test(BESSEL))
        s.flags |= F_BESSEL;
    else if (o.test(CHEBYSHEV)) {
        s.flags |= F_CHEBYSHEV;
        s.ripple = request->ripple;
    } else if (o.test(BUTTERWORTH))
        s.flags |= F_BUTTERWORTH;
    int lengthFactor = 1;
    if (o.test(LOWPASS)) {
        s.flags |= F_LOWPASS | F_CORNER;
        s.alpha1 = request->fc1;
    } else if (o.test(HIGHPASS)) {
        s.flags |= F_HIGHPASS | F_CORNER;
        s.alpha1 = request->fc1;
    } else if (o.test(BANDPASS)) {
        s.flags |= F_BANDPASS | F_CORNER;
        s.alpha1 = request->fc1;
        s.alpha2 = request->fc2;
        lengthFactor = 2;
    } else if (o.test(BANDSTOP)) {
        s.flags |= F_BANDSTOP | F_CORNER;
        s.alpha1 = request->fc1;
        s.alpha2 = request->fc2;
        lengthFactor = 2;
    } else if (o.test(ALLPASS)) {
        s.flags |= F_ALLPASS | F_CORNER;
        s.alpha1 = request->fc1;
    }
    if (o.test(NO_PREWARP)) s.flags |= F_NOPREWARP;
    if (o.test(MATCHED_Z)) s.flags |= F_MATCHEDZ;
    s.flags |= F_ORDER;
    s.order = request->order;
    const int N = request->order * lengthFactor;
    request->A = std::make_shared<ScalarVector>(N > 0 ? N : 0, 0.0f);
    request->B = std::make_shared<ScalarVector>(N + 1 > 0 ? N + 1 : 0, 0.0f);
    core(s);
    const double gain = std::abs(s.dcGain);
    const int nz = s.zZeroCount, np = s.zPoleCount;
    std::vector<double> xOut(std::max(nz, np) + 2, 0.0), yOut(std::max(nz, np) + 2, 0.0);
    for (int i = 0; i <= nz; ++i) xOut[nz - i] = s.xCoefficients[i];
    for (int i = 0; i < np; ++i) yOut[np - i] = s.yCoefficients[i];
    ScalarVector& B = *request->B;
    ScalarVector& A = *request->A;
    for (size_t k = 0; k < B.size() && k < xOut.size(); ++k) B[k] = static_cast<scalar>(xOut[k] / gain);
    for (size_t k = 0; k < A.size() && k + 1 < yOut.size(); ++k) A[k] = static_cast<scalar>(-yOut[k + 1]);
}

} // namespace filterdesign
} // namespace kelm
