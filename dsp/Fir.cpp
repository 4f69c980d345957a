#include "dsp/Fir.h"

#include <cstring>
#include <new>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

Fir::Fir() {
    std::memset(coefficients, 0, sizeof coefficients);
    std::memset(reversed, 0, sizeof reversed);
    packed.reserve(kMaxTaps);
}

Fir::~Fir() { delete[] history; }

void Fir::setCoefficients(const PropertyMap& p) {
    ScalarVectorPtr v;
    if (p.readOptional("Coefficients", v)) setCoefficients(v->data(), static_cast<unsigned>(v->size()));
}

void Fir::setCoefficients(const scalar* t, unsigned n) {
    if (n > kMaxTaps) throw KELMException(str("Maximum filter order is ", kMaxTaps - 1, ". You requested: ", n - 1));
    if (!t) throw KELMException("Fir: b cannot be null");
    std::memset(coefficients, 0, sizeof coefficients);
    std::memcpy(coefficients, t, n * sizeof(scalar));
    for (unsigned i = 0; i < n; ++i) reversed[i] = t[n - 1 - i];
    taps = n;
    groups = n ? (n - 1) / 4 + 1 : 0;
    packed.assign(coefficients, coefficients + 4 * groups);
}

void Fir::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name != "Coefficients") throw InvalidArgumentException("Fir: Invalid property name " + name);
    setCoefficients(value->data(), static_cast<unsigned>(value->size()));
}

void Fir::allocate(int n) {
    delete[] history;
    history = nullptr;
    try {
        history = new scalar[static_cast<size_t>(n) + kMaxTaps]();
    } catch (const std::bad_alloc&) {
        throw KELMException("Failed to allocate memory for FIR buffer");
    }
    historySize = static_cast<unsigned>(n);
}

void Fir::setMaxBlockSize(int n) {
    const bool grows = n > maxBlockSize;
    SingleOutputFilter::setMaxBlockSize(n);
    if (grows) allocate(n);  // growth clears the signal state
}

void Fir::reset() {
    if (history) std::memset(history, 0, (historySize + kMaxTaps) * sizeof(scalar));
}

scalar Fir::convolveAt(const scalar* newest) const {
    // Tap 4g+j meets the sample 4g+j steps before the newest; four lanes side by side.
    scalar s[4] = {0, 0, 0, 0};
    const scalar* c = packed.data();
    for (unsigned g = 0; g < groups; ++g, c += 4) {
        const scalar* h = newest - 4 * g;
        s[0] += c[0] * h[0];
        s[1] += c[1] * h[-1];
        s[2] += c[2] * h[-2];
        s[3] += c[3] * h[-3];
    }
    return (s[1] + s[3]) + (s[0] + s[2]);
}

void Fir::shift(size_t n) {
    if (taps < 2) return;
    const unsigned base = 4 * groups - taps;
    std::memmove(history + base, history + base + n, (taps - 1) * sizeof(scalar));
}

void Fir::process(const scalar* in, scalar* out, size_t n) {
    if (n == 0 || !in || !out || groups == 0) {
        if (out && groups == 0) std::memset(out, 0, n * sizeof(scalar));
        return;
    }
    const unsigned head = 4 * groups - 1;
    std::memcpy(history + head, in, n * sizeof(scalar));
    for (size_t k = 0; k < n; ++k) out[k] = convolveAt(history + head + k);
    shift(n);
}

scalar* Fir::process(scalar* in, size_t n) {
    process(static_cast<const scalar*>(in), buffer, n);
    return buffer;
}

scalar Fir::process(scalar x) {
    if (groups == 0) return 0.0f;
    const unsigned head = 4 * groups - 1;
    history[head] = x;
    const scalar y = convolveAt(history + head);
    shift(1);
    return y;
}

ScalarVector& Fir::iterate(const ScalarVectorPtr& inputs, int, int) {
    if (groups == 0) {
        iterationResults[0] = 0;
        return iterationResults;
    }
    const unsigned head = 4 * groups - 1;
    history[head] = (*inputs)[0];
    iterationResults[0] = convolveAt(history + head);
    return iterationResults;
}

void Fir::endIteration(int frame) {
    shift(1);
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
