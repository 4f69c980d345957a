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
    DenseMatrix inv(n, n);
    DenseVector unit = DenseVector::Zero(n);
    for (int c = 0; c < n; ++c) {
        unit[c] = 1.0f;
        status = lubksb(n, A.data(), n, pivots.data(), inv.col(c).data(), unit.data());
        if (status != 0) throw KELMException(str("LinearSolver: lubksb returned error: ", status));
        unit[c] = 0.0f;
    }
    if (inverse && static_cast<int>(inverse->rows()) == n)
        inverse->updateMatrix(inv.data(), n, n);
    else
        inverse.reset(new PackedMatrix(inv.data(), n, n));
}

bool LinearSolver::solve(DenseVector& x) {
    context->computeRhs(x, rhs);
    inverse->product(rhs.data(), x.data(), n, n);
    return true;
}

} // namespace kelm
