#pragma once
#if defined(__SSE2__)
#include <emmintrin.h>

namespace kelm {

// Two values side by side in the lanes of an SSE2 register, such as the left and the
// right channel's: arithmetic lane by lane with the IEEE operations of scalar code, so
// that each lane gives what the scalar code gives, to the bit. Only where SSE2 is present.
template <typename T>
struct TwoLanes;

template <>
struct TwoLanes<double> {
    __m128d v;
    TwoLanes() = default;
    TwoLanes(__m128d x) : v(x) {}
    TwoLanes(double a, double b) : v(_mm_set_pd(b, a)) {}
    // Two neighbouring values from 16-byte aligned memory.
    static TwoLanes load(const double* p) { return _mm_load_pd(p); }
    void store(double* p) const { _mm_store_pd(p, v); }
    double lane0() const { return _mm_cvtsd_f64(v); }
    double lane1() const { return _mm_cvtsd_f64(_mm_unpackhi_pd(v, v)); }
    friend TwoLanes operator+(TwoLanes x, TwoLanes y) { return _mm_add_pd(x.v, y.v); }
    friend TwoLanes operator-(TwoLanes x, TwoLanes y) { return _mm_sub_pd(x.v, y.v); }
    friend TwoLanes operator*(TwoLanes x, TwoLanes y) { return _mm_mul_pd(x.v, y.v); }
    friend TwoLanes operator/(TwoLanes x, TwoLanes y) { return _mm_div_pd(x.v, y.v); }
    // The sign flipped, as unary minus does it (not 0 - x, which differs for zeros).
    TwoLanes operator-() const { return _mm_xor_pd(v, _mm_set1_pd(-0.0)); }
};

template <>
struct TwoLanes<float> {
    __m128 v;  // the low two lanes
    TwoLanes() = default;
    TwoLanes(__m128 x) : v(x) {}
    TwoLanes(float a, float b) : v(_mm_set_ps(0.0f, 0.0f, b, a)) {}
    // Rounded to float lane by lane, as a cast of each double does it.
    explicit TwoLanes(TwoLanes<double> x) : v(_mm_cvtpd_ps(x.v)) {}
    float lane0() const { return _mm_cvtss_f32(v); }
    float lane1() const { return _mm_cvtss_f32(_mm_shuffle_ps(v, v, 1)); }
    friend TwoLanes operator+(TwoLanes x, TwoLanes y) { return _mm_add_ps(x.v, y.v); }
    friend TwoLanes operator-(TwoLanes x, TwoLanes y) { return _mm_sub_ps(x.v, y.v); }
    friend TwoLanes operator*(TwoLanes x, TwoLanes y) { return _mm_mul_ps(x.v, y.v); }
};

} // namespace kelm
#endif
