#include "solvers/LinearSolver.h"

#include "solvers/KernelChooser.h"

#include <utility>

#include "math/DenseKernels.h"
#include "circuit/MNAContext.h"
#include "engine/Str.h"

namespace kelm {

namespace {

// y := sum over ports of R[:, p] * u[p], for the ports whose amplitude is not 0.
// Columns of R are padded to a multiple of four rows, so that the product runs
// in whole vector lanes.
template <int N>
void combine(const float* __restrict R, const float* __restrict u, int ports, float* __restrict y, int) {
    constexpr int L = (N + 3) & ~3;
#ifdef __SSE__
    __m128 acc[L / 4];
    for (int v = 0; v < L / 4; ++v) acc[v] = _mm_setzero_ps();
    for (int p = 0; p < ports; ++p) {
        const float t = u[p];
        if (t == 0.0f) continue;
        const __m128 tt = _mm_set1_ps(t);
        const float* column = R + static_cast<std::ptrdiff_t>(p) * L;
        for (int v = 0; v < L / 4; ++v) acc[v] = _mm_add_ps(acc[v], _mm_mul_ps(_mm_loadu_ps(column + 4 * v), tt));
    }
    alignas(16) float out[L];
    for (int v = 0; v < L / 4; ++v) _mm_store_ps(out + 4 * v, acc[v]);
#else
    float out[L] = {};
    for (int p = 0; p < ports; ++p) {
        const float t = u[p];
        if (t == 0.0f) continue;
        const float* column = R + static_cast<std::ptrdiff_t>(p) * L;
        for (int i = 0; i < L; ++i) out[i] += column[i] * t;
    }
#endif
    for (int i = 0; i < N; ++i) y[i] = out[i];
}

void combineAny(const float* __restrict R, const float* __restrict u, int ports, float* __restrict y, int n) {
    for (int i = 0; i < n; ++i) y[i] = 0.0f;
    for (int p = 0; p < ports; ++p) {
        const float t = u[p];
        if (t == 0.0f) continue;
        const float* column = R + static_cast<std::ptrdiff_t>(p) * ((n + 3) & ~3);
        for (int i = 0; i < n; ++i) y[i] += column[i] * t;
    }
}

template <int... N>
LinearSolver::Combine pick(int n, std::integer_sequence<int, N...>) {
    LinearSolver::Combine f = combineAny;
    ((n == N + 1 ? (f = combine<N + 1>, 0) : 0), ...);
    return f;
}

} // namespace

void LinearSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    context->assembleMatrix();
    A = context->matrix();
    n = static_cast<int>(A.rows());
    spare.setZero(n);
    pivots.assign(n, 0);
    responses.setZero((n + 3) & ~3, context->portCount());
    amplitudes.setZero(context->portCount());
    combiner = pick(n, std::make_integer_sequence<int, 16>());
    initMatrix();
}

void LinearSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    if (A.rows() != static_cast<long>(pivots.size()))
        throw KELMException(str("LinearSolver: Matrix A changed size since init. Old size: ", pivots.size(),
                                " New size: ", A.rows()));
    ++factorCount;
    status = ludcmp(n, A.data(), n, pivots.data());
    if (status != 0) throw KELMException(str("ludcmp returned error: ", status));
    for (int p = 0; p < responses.cols(); ++p) {
        context->portColumn(p, spare.data());
        status = lubksb(n, A.data(), n, pivots.data(), responses.col(p).data(), spare.data());
        if (status != 0) throw KELMException(str("LinearSolver: lubksb returned error: ", status));
    }
}


bool LinearSolver::solve(DenseVector& x) {
    float* u = amplitudes.data();
    context->computePortAmplitudes(x.data(), u);
    combiner(responses.data(), u, static_cast<int>(responses.cols()), x.data(), n);
    return true;
}

std::unique_ptr<SampleKernel> LinearSolver::makeKernel(int inputs, int outputs, std::string& reason) {
    KernelChooser::Request request;
    request.iterates = false;
    return KernelChooser::choose(*context, request, inputs, outputs, reason);
}

} // namespace kelm
