#include "solvers/LinearSolver.h"

#include "circuit/DenseKernels.h"
#include "circuit/MNAContext.h"
#include "engine/Str.h"

namespace kelm {

void LinearSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    context->assembleMatrix();
    A = context->matrix();
    n = static_cast<int>(A.rows());
    spare.setZero(n);
    pivots.assign(n, 0);
    responses.setZero(n, context->portCount());
    amplitudes.setZero(context->portCount());
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
    float* __restrict u = amplitudes.data();
    context->computePortAmplitudes(x.data(), u);
    float* __restrict y = x.data();
    const float* __restrict R = responses.data();
    const int P = static_cast<int>(responses.cols());
    for (int i = 0; i < n; ++i) y[i] = 0.0f;
    for (int p = 0; p < P; ++p) {
        const float t = u[p];
        if (t == 0.0f) continue;
        const float* column = R + static_cast<std::ptrdiff_t>(p) * n;
        for (int i = 0; i < n; ++i) y[i] += column[i] * t;
    }
    return true;
}

} // namespace kelm
