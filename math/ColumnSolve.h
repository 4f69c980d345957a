#pragma once
// Dense solves on small column-major double matrices for the per-sample port iteration:
// every inner loop runs down a column (no sums in a fixed order), so that the compiler may
// vectorise it, and with the order as a template argument (NS above 0) it unrolls them.
#include <cmath>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "math/SmallLoops.h"

namespace kelm {

// to -= scale from, over n entries (NS above 0: n known to the compiler), two at a time.
template <int NS>
inline void subtractColumn(double* __restrict to, const double* __restrict from, double scale, int n) {
    const int count = NS > 0 ? NS : n;
    int i = 0;
#if defined(__SSE2__)
    const __m128d s = _mm_set1_pd(scale);
    KELM_UNROLL
    for (; i + 2 <= count; i += 2)
        _mm_storeu_pd(to + i, _mm_sub_pd(_mm_loadu_pd(to + i), _mm_mul_pd(_mm_loadu_pd(from + i), s)));
#endif
    KELM_UNROLL
    for (; i < count; ++i) to[i] -= from[i] * scale;
}

// One step of Gaussian elimination on the n by n column-major J and b at column c, its
// pivot J[c][c] in place: the column below scaled by the pivot's inverse, b and the columns
// to the right updated, and the pivot replaced by its inverse (so that the substitution
// after multiplies: no division waits on the one before). Every inner loop runs down a
// column, so that it needs no sums in a fixed order and the compiler may vectorise it. NS
// above 0: n known to the compiler.
template <int NS>
inline void eliminateColumn(double* __restrict J, int n, double* __restrict b, int c) {
    double* column = J + c * n;
    const double inverse = 1.0 / column[c];
    column[c] = inverse;
    KELM_UNROLL
    for (int r = c + 1; r < n; ++r) column[r] *= inverse;
    const double bc = b[c];
    KELM_UNROLL
    for (int r = c + 1; r < n; ++r) b[r] -= column[r] * bc;
    KELM_UNROLL
    for (int k = c + 1; k < n; ++k) {
        double* target = J + k * n;
        subtractColumn<0>(target + c + 1, column + c + 1, target[c], n - c - 1);
    }
}

// The back substitution after the elimination (the diagonal holding the pivots' inverses):
// b becomes x.
template <int NS>
inline void substituteBack(const double* __restrict J, int n, double* __restrict b) {
    KELM_UNROLL
    for (int c = n - 1; c >= 0; --c) {
        const double* column = J + c * n;
        const double x = b[c] * column[c];
        b[c] = x;
        KELM_UNROLL
        for (int r = 0; r < c; ++r) b[r] -= column[r] * x;
    }
}

// Solves J x = b in place (b becomes x) for the n by n column-major J by Gaussian
// elimination with partial pivoting; J is overwritten by its factors. Where rowOrder is
// given, the rows are exchanged in the factors' left part too, and rowOrder[i] says which
// row of b the factors' row i is (so that a later solve gathers b once instead of exchanging
// as it goes). False for a singular or non-finite J. NS above 0: the order known to the
// compiler.
template <int NS>
bool solveColumns(double* __restrict J, int order, double* __restrict b, int* rowOrder = nullptr) {
    const int n = NS > 0 ? NS : order;
    KELM_UNROLL
    for (int c = 0; c < n; ++c) {
        const double* column = J + c * n;
        int p = c;
        double best = std::fabs(column[c]);
        KELM_UNROLL
        for (int r = c + 1; r < n; ++r) {
            const double a = std::fabs(column[r]);
            if (a > best) {
                best = a;
                p = r;
            }
        }
        if (!(best > 0) || !(best < HUGE_VAL)) return false;
        if (rowOrder && c == 0)
            for (int r = 0; r < n; ++r) rowOrder[r] = r;
        if (p != c) {
            KELM_UNROLL
            for (int k = rowOrder ? 0 : c; k < n; ++k) std::swap(J[k * n + c], J[k * n + p]);
            std::swap(b[c], b[p]);
            if (rowOrder) std::swap(rowOrder[c], rowOrder[p]);
        }
        eliminateColumn<NS>(J, n, b, c);
    }
    substituteBack<NS>(J, n, b);
    return true;
}

// Solves J x = b in place with the factors that solveColumns left in LU and the order of
// rows it chose: b gathered in that order, the elimination replayed on it, then the back
// substitution.
template <int NS>
void solveFactored(const double* __restrict LU, const int* __restrict rowOrder, double* __restrict b) {
    static_assert(NS > 0, "kept factors are sized");
    constexpr int n = NS;
    double gathered[NS];
    KELM_UNROLL
    for (int r = 0; r < n; ++r) gathered[r] = b[rowOrder[r]];
    KELM_UNROLL
    for (int r = 0; r < n; ++r) b[r] = gathered[r];
    KELM_UNROLL
    for (int c = 0; c < n; ++c) {
        const double* column = LU + c * n;
        const double bc = b[c];
        KELM_UNROLL
        for (int r = c + 1; r < n; ++r) b[r] -= column[r] * bc;
    }
    substituteBack<NS>(LU, n, b);
}

// The inverse of the 4 x 4 J from its 2 x 2 minors (J stored by rows or by columns, the
// inverse in the same order): no pivots to search and one division. False for a singular or
// non-finite J.
inline bool invert4(const double* __restrict m, double* __restrict inv) {
    const double s0 = m[0] * m[5] - m[4] * m[1], s1 = m[0] * m[6] - m[4] * m[2], s2 = m[0] * m[7] - m[4] * m[3];
    const double s3 = m[1] * m[6] - m[5] * m[2], s4 = m[1] * m[7] - m[5] * m[3], s5 = m[2] * m[7] - m[6] * m[3];
    const double c5 = m[10] * m[15] - m[14] * m[11], c4 = m[9] * m[15] - m[13] * m[11];
    const double c3 = m[9] * m[14] - m[13] * m[10], c2 = m[8] * m[15] - m[12] * m[11];
    const double c1 = m[8] * m[14] - m[12] * m[10], c0 = m[8] * m[13] - m[12] * m[9];
    const double det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
    if (!(std::fabs(det) > 0) || !std::isfinite(det)) return false;
    const double d = 1.0 / det;
    inv[0] = (m[5] * c5 - m[6] * c4 + m[7] * c3) * d;
    inv[1] = (-m[1] * c5 + m[2] * c4 - m[3] * c3) * d;
    inv[2] = (m[13] * s5 - m[14] * s4 + m[15] * s3) * d;
    inv[3] = (-m[9] * s5 + m[10] * s4 - m[11] * s3) * d;
    inv[4] = (-m[4] * c5 + m[6] * c2 - m[7] * c1) * d;
    inv[5] = (m[0] * c5 - m[2] * c2 + m[3] * c1) * d;
    inv[6] = (-m[12] * s5 + m[14] * s2 - m[15] * s1) * d;
    inv[7] = (m[8] * s5 - m[10] * s2 + m[11] * s1) * d;
    inv[8] = (m[4] * c4 - m[5] * c2 + m[7] * c0) * d;
    inv[9] = (-m[0] * c4 + m[1] * c2 - m[3] * c0) * d;
    inv[10] = (m[12] * s4 - m[13] * s2 + m[15] * s0) * d;
    inv[11] = (-m[8] * s4 + m[9] * s2 - m[11] * s0) * d;
    inv[12] = (-m[4] * c3 + m[5] * c1 - m[6] * c0) * d;
    inv[13] = (m[0] * c3 - m[1] * c1 + m[2] * c0) * d;
    inv[14] = (-m[12] * s3 + m[13] * s1 - m[14] * s0) * d;
    inv[15] = (m[8] * s3 - m[9] * s1 + m[10] * s0) * d;
    return true;
}

// b := M b for the 4 x 4 column-major M: a sum of its columns.
inline void multiply4(const double* __restrict M, double* __restrict b) {
    double x[4] = {0, 0, 0, 0};
    for (int c = 0; c < 4; ++c) subtractColumn<4>(x, M + 4 * c, -b[c], 4);
    for (int r = 0; r < 4; ++r) b[r] = x[r];
}

} // namespace kelm
