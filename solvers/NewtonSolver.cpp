#include "solvers/NewtonSolver.h"

#include <cctype>
#include <algorithm>
#include <cmath>

#include "math/DenseKernels.h"
#include "circuit/MNAContext.h"
#include "engine/Str.h"
#include "solvers/KernelChooser.h"
#include "solvers/SolverProperties.h"

namespace kelm {

void NewtonSolver::setProperties(const PropertyMapPtr& properties) {
    using namespace solverprops;
    propertiesSet = false;
    const PropertyMap& p = *properties;
    require(p, "RelativeTollerance", relativeTollerance, "NewtonSolver: RelativeTollerance is not defined.");
    if (!(relativeTollerance > 0))
        throw InvalidArgumentException(
            str("NewtonSolver: RelativeTollerance must be greater than 0. relativeTollerance=", relativeTollerance));
    require(p, "AbsoluteTollerance", absoluteTollerance, "NewtonSolver: AbsoluteTollerance is not defined.");
    if (!(absoluteTollerance > 0))
        throw InvalidArgumentException(
            str("NewtonSolver: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=", absoluteTollerance));
    relaxation = 1.0f;
    read(p, "Relaxation", relaxation);
    if (!(relaxation > 0 && relaxation <= 1))
        throw InvalidArgumentException(str(
            "NewtonSolver: Relaxation must be greater than 0 and less than or equal to 1. InitialRelaxation=", relaxation));
    fixedPointSteps = 0;
    read(p, "FixedPointSteps", fixedPointSteps);
    if (fixedPointSteps < 0)
        throw InvalidArgumentException(
            str("NewtonSolver: FixedPointSteps must be greater than or equal to 0. FixedPointSteps=", fixedPointSteps));
    diagonal = false;
    auto it = p.find("UseDiagonalNewton");
    if (it != p.end()) {
        std::string v = it->second;
        for (char& c : v) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        diagonal = v == "true";
    }
    require(p, "MaxIterations", maxIter, "NewtonSolver: MaxIterations is not defined.");
    if (maxIter < 1)
        throw InvalidArgumentException(str("NewtonSolver: MaxIterations must be greater than 0. MaxIterations=", maxIter));
    accelerate = false;
    p.readOptional("Accelerate", accelerate);
    errorCorrectionFactor = 0;
    extrapolationOrder = 1;
    if (accelerate) {
        read(p, "ErrorCorrectionFactor", errorCorrectionFactor);
        read(p, "ExtrapolationOrder", extrapolationOrder);
    }
    propertiesSet = true;
}

void NewtonSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    if (!propertiesSet) throw KELMException("NewtonSolver: Properties must be set before calling init().");
    initMatrix();
    for (DenseVector* v : {&x0, &predicted, &previous, &xm1, &xm2, &f, &dx, &errors, &b}) v->setZero(n);
    xWide.assign(n, 0.0);
    bWide.assign(n, 0.0);
    initialized = true;
}

void NewtonSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    if (fixedPointSteps > 0) fixedPointLU.compute(A);
    if (initialized) {
        if (A.rows() != n) throw KELMException("Newton Solver.initMatrix: a changed number of rows after initialization.");
        return;
    }
    n = lda = static_cast<int>(A.rows());
    pivots.assign(n, 0);
    m = context->fixedMarker() + 1 + n;
}

void NewtonSolver::restamp() {
    // Newton factors the Jacobian anyway: a new A is all that it needs, unless
    // fixed-point steps keep a factorisation of A.
    if (fixedPointSteps > 0 || !initialized) {
        initMatrix();
        return;
    }
    context->restampSignalDependent();
    std::copy(context->matrix().data(), context->matrix().data() + A.size(), A.data());
}

std::unique_ptr<SampleKernel> NewtonSolver::makeKernel(int inputs, int outputs, std::string& reason) {
    KernelChooser::Request request;
    request.settings.relativeTolerance = relativeTollerance;
    request.settings.absoluteTolerance = absoluteTollerance;
    request.settings.maxIterations = maxIter;
    request.settings.accelerate = accelerate;
    request.settings.errorCorrection = errorCorrectionFactor;
    request.settings.extrapolationOrder = extrapolationOrder;
    request.settings.relaxation = relaxation;
    if (fixedPointSteps > 0) request.refusal = "the solver asks for fixed-point steps";
    if (diagonal) request.refusal = "the solver asks for the diagonal Newton step";
    return KernelChooser::choose(*context, request, inputs, outputs, reason);
}

void NewtonSolver::predict(DenseVector& x) {
    if (extrapolationOrder == 1) {
        for (int i = 0; i < m; ++i) x0[i] = 2 * x[i] - xm1[i] + errorCorrectionFactor * (x[i] - predicted[i]);
    } else {
        for (int i = 0; i < m; ++i)
            x0[i] = 2.5f * x[i] - 2 * xm1[i] + 0.5f * xm2[i] + errorCorrectionFactor * (x[i] - predicted[i]);
        std::copy(xm1.data(), xm1.data() + n, xm2.data());
    }
    std::copy(x0.data(), x0.data() + n, predicted.data());
    std::copy(x.data(), x.data() + n, xm1.data());
}

void NewtonSolver::reducedSolve(DenseMatrix& J) {
    for (int i = m; i < n; ++i) {
        const float bi = b[i];
        const float* col = J.data() + static_cast<std::ptrdiff_t>(i) * lda;
        for (int r = 0; r < m; ++r) b[r] -= bi * col[r];
        dx[i] = bi;
    }
    status = ludcmp(m, J.data(), lda, pivots.data());
    if (status != 0) throw KELMException(str("ludcmp returned error: ", status));
    status = lubksb(m, J.data(), lda, pivots.data(), dx.data(), b.data());
    if (status != 0) throw KELMException(str("lubksb returned error: ", status));
}

bool NewtonSolver::solve(DenseVector& x) {
    if (!initialized) throw KELMException("NewtonSolver: Not initialized.");
    std::copy(x.data(), x.data() + n, x0.data());
    if (accelerate) predict(x);
    std::fill(dx.data(), dx.data() + n, 0.0f);
    // Unknowns and residual in double within the sample, as in solveSmall.
    double* __restrict xd = xWide.data();
    double* __restrict bd = bWide.data();
    for (int i = 0; i < n; ++i) xd[i] = x0[i];
    int k = 0;
    while (k < maxIter) {
        ++k;
        context->computeRhs(x0, f);
        // Where a limiter moved an unknown, the iteration goes on from there (as in SmallRun).
        for (int i = 0; i < n; ++i)
            if (x0[i] != static_cast<float>(xd[i])) xd[i] = x0[i];
        std::copy(x0.data(), x0.data() + n, previous.data());
        if (k > fixedPointSteps) {
            for (int i = 0; i < n; ++i) bd[i] = -static_cast<double>(f[i]);
            for (int j = 0; j < n; ++j) {
                const double t = xd[j];
                const float* column = A.data() + static_cast<std::ptrdiff_t>(j) * n;
                for (int i = 0; i < n; ++i) bd[i] += column[i] * t;
            }
            for (int i = 0; i < n; ++i) b[i] = static_cast<float>(bd[i]);
            DenseMatrix& J = context->computeJacobian(x0);
            if (!diagonal)
                reducedSolve(J);
            else
                for (int i = 0; i < n; ++i) dx[i] = b[i] * reciprocal(J(i, i));
            for (int i = 0; i < n; ++i) {
                xd[i] -= relaxation * dx[i];
                x0[i] = static_cast<float>(xd[i]);
            }
        } else {
            x0.noalias() = fixedPointLU.solve(f);
            dx = x0 - previous;
            x0 = previous + relaxation * dx;
            for (int i = 0; i < n; ++i) xd[i] = x0[i];
        }
        for (int i = 0; i < n; ++i) errors[i] = std::fabs(dx[i]) - relativeTollerance * std::fabs(x0[i]);
        float worst = n > 0 ? errors[0] : 0.0f;
        for (int i = 1; i < n; ++i)
            if (errors[i] > worst) worst = errors[i];
        if (!(worst > 0)) break;
    }
    if (accelerate) std::copy(x0.data(), x0.data() + n, previous.data());
    std::copy(x0.data(), x0.data() + n, x.data());
    count(k);
    return k < maxIter;
}

} // namespace kelm
