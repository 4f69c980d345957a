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
    rhs.setZero(n);
    spare.setZero(n);
    pivots.assign(n, 0);
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
    if (inverse.rows() != n) inverse.resize(n, n);
    if (spare.size() != n) spare.resize(n);
    spare.setZero();
    for (int c = 0; c < n; ++c) {
        spare[c] = 1.0f;
        status = lubksb(n, A.data(), n, pivots.data(), inverse.col(c).data(), spare.data());
        if (status != 0) throw KELMException(str("LinearSolver: lubksb returned error: ", status));
        spare[c] = 0.0f;
    }
}

bool LinearSolver::solve(DenseVector& x) {
    context->computeRhs(x, rhs);
    float* __restrict y = x.data();
    const float* __restrict b = rhs.data();
    const float* __restrict inv = inverse.data();
    for (int i = 0; i < n; ++i) y[i] = 0.0f;
    for (int j = 0; j < n; ++j) {
        const float t = b[j];
        if (t == 0.0f) continue;
        const float* column = inv + static_cast<std::ptrdiff_t>(j) * n;
        for (int i = 0; i < n; ++i) y[i] += column[i] * t;
    }
    return true;
}

} // namespace kelm
