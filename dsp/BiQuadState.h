#pragma once

namespace kelm {

// The difference equation of a second-order section in direct form I,
// y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2, with the order of operations of the BiQuad;
// advances the history (x1, x2: past inputs, y1, y2: past outputs) and returns y. For any
// arithmetic type: float, double, or two channels in the lanes of a register.
template <typename T>
inline T biquadStep(T& x1, T& x2, T& y1, T& y2, const T& b0, const T& b1, const T& b2, const T& a1, const T& a2,
                    const T& x) {
    T s = b1 * x1 + b0 * x;
    s = s + b2 * x2;
    s = s - a1 * y1;
    s = s - a2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = s;
    return s;
}

// The history of a second-order section in direct form I.
template <typename T>
struct BiQuadState {
    T x1, x2, y1, y2;

    T step(const T& b0, const T& b1, const T& b2, const T& a1, const T& a2, const T& x) {
        return biquadStep(x1, x2, y1, y2, b0, b1, b2, a1, a2, x);
    }
};

} // namespace kelm
