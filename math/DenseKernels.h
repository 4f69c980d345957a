#pragma once
// Single-precision kernels on contiguous column-major arrays. They know
// nothing of circuits, allocate nothing and never divide in the LU code.
#include <cstdint>
#if defined(__SSE__) || defined(_M_X64) || defined(_M_IX86)
#include <xmmintrin.h>
#define KELM_HAVE_RCP 1
#endif

namespace kelm {

enum { KernelColMajor = 102, KernelNoTrans = 111, KernelTrans = 112 };

// y := beta*y, then y += alpha*A*x (column stride m; order, lda, incx and incy
// are accepted and ignored; any trans other than 111 only scales y).
void gemv(int order, int trans, int m, int n, float alpha, const float* A, int lda, const float* x, int incx,
          float beta, float* y, int incy);
// y[i] += alpha*x[i]
void axpy(int n, float alpha, const float* x, float* y);
// x[i] *= alpha
void scal(int n, float alpha, float* x);
// Sum of x[i]*y[i], four partial sums combined as (s1+s3)+(s0+s2).
float dot(const float* x, const float* y, int n);
// In-place LU with partial pivoting. pivots[i] is the original row now at i.
// Returns 0, or -1 for a pivot of magnitude below 1e-20 (or NaN).
int ludcmp(int n, float* A, int lda, int* pivots);
// Solves with the factors of ludcmp. x and b must differ. Returns 0.
int lubksb(int n, const float* LU, int lda, const int* pivots, float* x, const float* b);
// Reciprocal from the hardware estimate refined by one Newton step.
inline float reciprocal(float d) {
#ifdef KELM_HAVE_RCP
    const float e = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(d)));
#else
    const float e = 1.0f / d;
#endif
    return (2.0f - d * e) * e;
}

} // namespace kelm
