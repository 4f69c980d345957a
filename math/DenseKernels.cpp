#include "math/DenseKernels.h"

#include <cmath>

// The systems of circuits are small (a handful to a few dozen unknowns). For
// such sizes the vectorizer's prologues and epilogues cost more than the
// arithmetic, so these loops are compiled as plain scalar code.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("no-tree-vectorize")
#endif

namespace kelm {

void gemv(int, int trans, int m, int n, float alpha, const float* __restrict A, int, const float* __restrict x, int,
          float beta, float* __restrict y, int) {
    if (beta != 1.0f)
        for (int i = 0; i < m; ++i) y[i] *= beta;
    if (trans != KernelNoTrans || n < 1) return;
    for (int j = 0; j < n; ++j) {
        const float t = x[j] * alpha;
        const float* col = A + static_cast<std::ptrdiff_t>(j) * m;
        for (int i = 0; i < m; ++i) y[i] += col[i] * t;
    }
}

void axpy(int n, float alpha, const float* __restrict x, float* __restrict y) {
    for (int i = 0; i < n; ++i) y[i] += alpha * x[i];
}

void scal(int n, float alpha, float* x) {
    for (int i = 0; i < n; ++i) x[i] *= alpha;
}

float dot(const float* x, const float* y, int n) {
    float s[4] = {0, 0, 0, 0};
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        s[0] += x[i] * y[i];
        s[1] += x[i + 1] * y[i + 1];
        s[2] += x[i + 2] * y[i + 2];
        s[3] += x[i + 3] * y[i + 3];
    }
    for (; i < n; ++i) s[i & 3] += x[i] * y[i];
    return (s[1] + s[3]) + (s[0] + s[2]);
}

int ludcmp(int n, float* __restrict A, int lda, int* __restrict pivots) {
    for (int i = 0; i < n; ++i) pivots[i] = i;
    if (n < 1) return 0;
    auto at = [A, lda](int r, int c) -> float& { return A[static_cast<std::ptrdiff_t>(c) * lda + r]; };
    for (int k = 0; k < n; ++k) {
        int p = k;
        float best = std::fabs(at(k, k));
        for (int i = k + 1; i < n; ++i) {
            float v = std::fabs(at(i, k));
            if (v > best) {
                best = v;
                p = i;
            }
        }
        if (p != k) {
            int t = pivots[k];
            pivots[k] = pivots[p];
            pivots[p] = t;
            for (int c = 0; c < n; ++c) {
                float s = at(k, c);
                at(k, c) = at(p, c);
                at(p, c) = s;
            }
        }
        const float d = at(k, k);
        if (!(std::fabs(d) >= 1e-20f)) return -1;
        const float r = reciprocal(d);
        float* colK = &at(0, k);
        for (int i = k + 1; i < n; ++i) colK[i] *= r;
        for (int c = k + 1; c < n; ++c) {
            float* colC = &at(0, c);
            const float u = colC[k];
            for (int i = k + 1; i < n; ++i) colC[i] -= u * colK[i];
        }
    }
    return 0;
}

int lubksb(int n, const float* __restrict LU, int lda, const int* __restrict pivots, float* __restrict x,
           const float* __restrict b) {
    for (int i = 0; i < n; ++i) x[i] = b[pivots[i]];
    for (int k = 0; k + 1 < n; ++k) {
        const float xk = x[k];
        if (xk == 0.0f) continue;  // circuit right-hand sides are mostly zeros: nothing to subtract
        const float* col = LU + static_cast<std::ptrdiff_t>(k) * lda;
        for (int j = k + 1; j < n; ++j) x[j] -= xk * col[j];
    }
    for (int k = n - 1; k >= 0; --k) {
        const float* col = LU + static_cast<std::ptrdiff_t>(k) * lda;
        x[k] *= reciprocal(col[k]);
        const float xk = x[k];
        for (int j = 0; j < k; ++j) x[j] -= xk * col[j];
    }
    return 0;
}

} // namespace kelm
