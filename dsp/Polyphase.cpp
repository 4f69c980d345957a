#include <cmath>
#include <cstring>

#include "dsp/KaiserDesign.h"
#include "dsp/PolyphaseDownsampler.h"
#include "dsp/PolyphaseUpsampler.h"
#include "dsp/ResamplingDecimator.h"
#include "dsp/ResamplingUpsampler.h"
#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/Str.h"

namespace kelm {

namespace {
void readFactor(const PropertyMap& p, int& factor, const std::string& cls, const std::string& name) {
    p.readRequired("Factor", factor, InvalidArgumentException("Factor is not defined. " + cls + " name=" + name));
    if (factor == 0)
        throw InvalidArgumentException(str("Factor must be greater than 0. ", factor, " ", cls, " name=", name));
}
} // namespace

// ---- PolyphaseUpsampler ----

void PolyphaseUpsampler::readProperties(const PropertyMap& p) {
    readFactor(p, factor, "PolyphaseUpsampler", elementName);
    Fir::readProperties(p);
}

void PolyphaseUpsampler::setMaxBlockSize(int n) {
    if (factor == 0) throw KELMException("Factor is not defined. PolyphaseUpsampler name=" + elementName);
    Fir::setMaxBlockSize(factor * n);
}

void PolyphaseUpsampler::setCoefficients(const scalar* t, unsigned n) {
    if (n == 0) throw KELMException("PolyphaseUpsampler: Size of filter coefficients must be greater than zero.");
    if (!t) throw KELMException("PolyphaseUpsampler: b cannot be null");
    const unsigned f = static_cast<unsigned>(factor);
    const unsigned rounded = (n + f - 1) / f * f;
    if (rounded > kMaxTaps)
        throw KELMException(str("PolyphaseUpsampler: Maximum filter order is ", kMaxTaps - 1, ". You requested: ", rounded - 1));
    std::memset(coefficients, 0, sizeof coefficients);
    std::memcpy(coefficients, t, n * sizeof(scalar));
    taps = rounded;
    groups = (taps - 1) / 4 + 1;
    const unsigned L = taps / f;
    phaseLength = (L - 1) / 4 + 1;
    packed.assign(static_cast<size_t>(f) * phaseLength * 4, 0.0f);
    scratch.assign(phaseLength * 4, 0.0f);
    for (unsigned p = 0; p < f; ++p)
        for (unsigned q = 0; q < phaseLength; ++q)
            for (unsigned i = 0; i < 4; ++i) {
                const unsigned index = (4 * q + i) * f + p;
                packed[(p * phaseLength + q) * 4 + i] = index < n ? t[index] : 0.0f;
            }
}

void PolyphaseUpsampler::process(const scalar* in, scalar* out, size_t n) {
    if (n == 0 || !in || !out || groups == 0) return;
    const unsigned head = 4 * groups - 1;
    const unsigned L = taps / factor;
    std::memcpy(history + head, in, n * sizeof(scalar));
    for (size_t k = 0; k < n; ++k) {
        for (unsigned j = 0; j < L; ++j) scratch[j] = history[head + k - j];
        for (int p = 0; p < factor; ++p) {
            const scalar* c = packed.data() + static_cast<size_t>(p) * phaseLength * 4;
            scalar s[4] = {0, 0, 0, 0};
            for (unsigned q = 0; q < phaseLength; ++q)
                for (unsigned i = 0; i < 4; ++i) s[i] += c[4 * q + i] * scratch[4 * q + i];
            out[k * factor + p] = (s[1] + s[3]) + (s[0] + s[2]);
        }
    }
    shift(n);
}

scalar* PolyphaseUpsampler::process(scalar* in, size_t n) {
    process(static_cast<const scalar*>(in), buffer, n);
    return buffer;
}

void PolyphaseUpsampler::process(BufferList& inputs, BufferList& outs, size_t n) {
    process(inputs.empty() ? nullptr : static_cast<const scalar*>(inputs[0]), buffer, n);
    if (!outs.empty() && outs[0] && outs[0] != buffer) std::memmove(outs[0], buffer, n * factor * sizeof(scalar));
}

ScalarVector& PolyphaseUpsampler::iterate(const ScalarVectorPtr&, int, int) {
    throw OperationNotSupportedException("PolyphaseUpsampler: Iteration is not supported.");
}
ScalarVector& PolyphaseUpsampler::getLastIterationResults() {
    throw OperationNotSupportedException("PolyphaseUpsampler: getLastIterationResults is not supported.");
}
void PolyphaseUpsampler::endIteration(int) {
    throw OperationNotSupportedException("PolyphaseUpsampler: endIteration is not supported.");
}

// ---- PolyphaseDownsampler ----

void PolyphaseDownsampler::readProperties(const PropertyMap& p) {
    readFactor(p, factor, "PolyphaseDownsampler", elementName);
    Fir::readProperties(p);
}

void PolyphaseDownsampler::setMaxBlockSize(int n) {
    if (factor == 0) throw KELMException("Factor is not defined. PolyphaseDownsampler name=" + elementName);
    Fir::setMaxBlockSize(n);
}

void PolyphaseDownsampler::process(const scalar* in, scalar* out, size_t n) {
    if (n == 0 || !in || !out || groups == 0) return;
    const unsigned head = 4 * groups - 1;
    std::memcpy(history + head, in, n * sizeof(scalar));
    size_t j = 0;
    for (size_t k = 0; k < n; k += factor) out[j++] = convolveAt(history + head + k);
    shift(n);
}

scalar* PolyphaseDownsampler::process(scalar* in, size_t n) {
    process(static_cast<const scalar*>(in), buffer, n);
    return buffer;
}

void PolyphaseDownsampler::process(BufferList& inputs, BufferList& outs, size_t n) {
    process(inputs.empty() ? nullptr : static_cast<const scalar*>(inputs[0]), buffer, n);
    if (!outs.empty() && outs[0] && outs[0] != buffer) std::memmove(outs[0], buffer, n / factor * sizeof(scalar));
}

ScalarVector& PolyphaseDownsampler::iterate(const ScalarVectorPtr&, int, int) {
    throw OperationNotSupportedException("PolyphaseDownsampler: Iteration is not supported.");
}
ScalarVector& PolyphaseDownsampler::getLastIterationResults() {
    throw OperationNotSupportedException("PolyphaseDownsampler: getLastIterationResult is not supported.");
}
void PolyphaseDownsampler::endIteration(int) {
    throw OperationNotSupportedException("PolyphaseDownsampler: endIteration is not supported.");
}

// ---- Kaiser design ----

double KaiserDesign::besselI0(double x) {
    const double ax = std::fabs(x);
    if (ax < 3.75) {
        const double t = x / 3.75, y = t * t;
        return 1.0 + y * (3.5156229 + y * (3.0899424 + y * (1.2067492 + y * (0.2659732 + y * (0.0360768 + y * 0.0045813)))));
    }
    const double y = 3.75 / ax;
    return (std::exp(ax) / std::sqrt(ax)) *
           (0.39894228 + y * (0.01328592 + y * (0.00225319 + y * (-0.00157565 + y * (0.00916281 +
            y * (-0.02057706 + y * (0.02635537 + y * (-0.01647633 + y * 0.00392377))))))));
}

std::vector<scalar> KaiserDesign::lowpass(int N, scalar fc, scalar A, int factor) {
    // The test of the usual form reads (A >= 21 || A <= 50), which always holds.
    const double beta = 0.5842 * std::pow(A - 21.0, 0.4) + 0.07886 * (A - 21.0);
    const scalar w = fc * 6.2831855f;
    const int M = (N - 1) / 2;
    std::vector<scalar> taps(N, 0.0f);
    for (int i = 0; i <= M; ++i) {
        const int m = M - i;
        const scalar sinc = m == 0 ? w * 0.31830987f : std::sin(m * w) / (m * 3.1415927f);
        const double t = 2.0 * m / (N - 1);
        double kaiser = besselI0(beta * std::sqrt(1 - t * t)) / besselI0(std::fabs(beta));
        if (!std::isfinite(kaiser)) kaiser = 0;
        taps[i] = static_cast<scalar>(factor * sinc * kaiser);
        taps[N - 1 - i] = taps[i];
    }
    scalar sum = 0;
    for (scalar t : taps) sum += t;
    const scalar scale = 1.0f / sum;
    for (scalar& t : taps) t *= scale;
    return taps;
}

// ---- the resampling elements ----

namespace {
struct ResamplingSettings {
    scalar relative = -1, absolute = -1, attenuation = 0;
    int order = 0, factor = 0;
};

ResamplingSettings readResampling(const PropertyMap& p, const std::string& cls) {
    ResamplingSettings s;
    std::string text;
    if (p.readOptional("RelativeCornerFrequency", text)) {
        s.relative = Conversions::toScalar(text);
        if (!(s.relative >= 0 && s.relative < 1))
            throw InvalidArgumentException(cls + ": RelativeCornerFrequency must be between 0 and 1. RelativeCornerFrequency=" + text);
    }
    if (p.readOptional("AbsoluteCornerFrequency", text)) {
        if (s.relative != -1)
            throw InvalidArgumentException(cls + ": RelativeCornerFrequency and AbsoluteCornerFrequency are defined. Only one is allowed.");
        s.absolute = Conversions::toScalar(text);
        if (s.absolute < 0)
            throw InvalidArgumentException(cls + ": AbsoluteCornerFrequency must be greater than 0. AbsoluteCornerFrequency=" + text);
    }
    if (s.relative == -1 && s.absolute == -1)
        throw KELMException(cls + ": Either RelativeCornerFrequency or AbsoluteCornerFrequency must be specified.");
    p.readRequired("Order", text, KELMException(cls + ": Order must be specified"));
    s.order = Conversions::toInt(text);
    if (s.order < 1) throw InvalidArgumentException(cls + ": Order must be greater than zero. Order=" + text);
    p.readRequired("Factor", text, KELMException(cls + ": Factor must be specified"));
    s.factor = Conversions::toInt(text);
    if (s.factor == 0) throw InvalidArgumentException(cls + ": Factor must be greater than 0. Factor=" + text);
    p.readRequired("Attenuation", text, KELMException(cls + ": Attenuation must be specified"));
    s.attenuation = Conversions::toScalar(text);
    if (!(s.attenuation > 1)) throw InvalidArgumentException(cls + ": Attenuation must be greater than 1. Attenuation=" + text);
    return s;
}
} // namespace

void ResamplingUpsampler::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    context = ctx.get();
    ResamplingSettings s = readResampling(*props, "ResamplingUpsampler");
    relative = s.relative;
    absolute = s.absolute;
    order = s.order;
    designFactor = s.factor;
    attenuation = s.attenuation;
    length = static_cast<unsigned>(((order - 1) / designFactor + 1) * designFactor);
    auto copy = std::make_shared<PropertyMap>(*props);
    (*copy)["Order"] = std::to_string(length);
    PolyphaseUpsampler::init(name, copy, ctx);
    if (relative != -1) design(relative / designFactor);
}

void ResamplingUpsampler::design(scalar corner) {
    std::vector<scalar> t = KaiserDesign::lowpass(order, corner, attenuation, designFactor);
    std::vector<scalar> all(length, 0.0f);
    for (int i = 0; i < order; ++i) all[i] = t[i] * designFactor;
    setCoefficients(all.data(), relative != -1 ? length : static_cast<unsigned>(order));
}

void ResamplingUpsampler::sampleRateChanged(scalar rate) {
    if (absolute == -1) return;
    reset();
    design(absolute / rate / designFactor);
}

void ResamplingDecimator::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    context = ctx.get();
    ResamplingSettings s = readResampling(*props, "ResamplingDecimator");
    relative = s.relative;
    absolute = s.absolute;
    order = s.order;
    designFactor = s.factor;
    attenuation = s.attenuation;
    const int length = ((order - 1) / designFactor + 1) * designFactor;
    auto copy = std::make_shared<PropertyMap>(*props);
    (*copy)["Order"] = std::to_string(length);
    PolyphaseDownsampler::init(name, copy, ctx);
    if (relative != -1) design(relative / designFactor);
}

void ResamplingDecimator::design(scalar corner) {
    std::vector<scalar> t = KaiserDesign::lowpass(order, corner, attenuation, designFactor);
    setCoefficients(t.data(), static_cast<unsigned>(order));
}

void ResamplingDecimator::sampleRateChanged(scalar rate) {
    if (absolute == -1) return;
    reset();
    design(absolute / rate / designFactor);
}

} // namespace kelm
