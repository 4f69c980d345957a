#include "solvers/NewtonSolver.h"

#include <cctype>
#include <algorithm>
#include <cmath>

#include "math/DenseKernels.h"
#include "circuit/MNAContext.h"
#include "engine/Str.h"
#include "math/WideLU.h"
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
    stepWide.assign(n, 0.0);
    jacobianWide.assign(static_cast<size_t>(n) * n, 0.0);
    blockWide.assign(static_cast<size_t>(n) * n, 0.0);
    initialized = true;
}

void NewtonSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    matrixWide.assign(static_cast<size_t>(A.rows()) * A.rows(), 0.0);
    context->assembleMatrix(matrixWide.data());
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
    context->assembleMatrix(matrixWide.data());
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

void NewtonSolver::reducedSolve(double* J) {
    // Forced unknowns move in one step to their values; their columns leave the system.
    double* bd = bWide.data();
    for (int i = m; i < n; ++i) {
        const double bi = bd[i];
        const double* col = J + static_cast<std::ptrdiff_t>(i) * n;
        for (int r = 0; r < m; ++r) bd[r] -= bi * col[r];
        stepWide[i] = bi;
    }
    // The leading m by m block, transposed into rows for the factorisation.
    double* block = blockWide.data();
    for (int c = 0; c < m; ++c)
        for (int r = 0; r < m; ++r) block[r * m + c] = J[static_cast<std::ptrdiff_t>(c) * n + r];
    if (!WideLU::factor(block, m, pivots.data())) throw KELMException(str("ludcmp returned error: ", -1));
    for (int r = 0; r < m; ++r) stepWide[r] = bd[r];
    WideLU::solve(block, m, pivots.data(), stepWide.data());
}

bool NewtonSolver::solve(DenseVector& x) { return iterate(x, 1.0); }

bool NewtonSolver::solveFromSupplies(DenseVector& x) {
    // Source stepping: the sources' part of the rhs (all of its constant part in a DC
    // analysis) grows from 0 to its full value; each step starts from the solution of the
    // one before, and a step that does not converge is tried again four times shorter.
    if (!initialized || !context->rhsSplits() || context->getAnalysisType() != AnalysisType::DC) return false;
    // The iteration's own test is relative alone: a node whose voltage is rounding alone (a
    // few 1e-22 V) never passes it, though the point has long settled. Where the last step
    // of the failed solve is within SPICE's test (the relative tolerance plus the absolute
    // one; a step that is not a number is not), its point stands, and so does x.
    if (settledWithinAbsolute()) return true;
    DenseVector accepted = DenseVector::Zero(n);
    double reached = 0, length = 0.1;
    // Each step may take at least 50 iterations, whatever the document's limit for one solve.
    const int limit = maxIter;
    maxIter = std::max(maxIter, 50);
    while (reached < 1.0) {
        const double next = std::min(1.0, reached + length);
        DenseVector trial = accepted;
        if (iterate(trial, next, absoluteTollerance) && trial.allFinite()) {
            accepted = trial;
            reached = next;
            length = std::min(2 * length, 0.5);
        } else if ((length *= 0.25) < 1e-6) {
            maxIter = limit;
            return false;
        }
    }
    maxIter = limit;
    x = accepted;
    return true;
}

bool NewtonSolver::settledWithinAbsolute() const {
    bool settled = true;
    for (int i = 0; i < n; ++i)
        settled = settled && std::fabs(stepWide[i]) <= relativeTollerance * std::fabs(xWide[i]) + absoluteTollerance;
    return settled;
}

bool NewtonSolver::iterate(DenseVector& x, double supplies, double absolute) {
    if (!initialized) throw KELMException("NewtonSolver: Not initialized.");
    std::copy(x.data(), x.data() + n, x0.data());
    if (accelerate) predict(x);
    // The iteration in double: A and the Jacobian summed in double (a small conductance
    // beside a large one keeps its digits), the unknowns, the residual and the step.
    double* __restrict xd = xWide.data();
    double* __restrict bd = bWide.data();
    double* __restrict step = stepWide.data();
    double* __restrict J = jacobianWide.data();
    const double* __restrict Ad = matrixWide.data();
    const size_t cells = static_cast<size_t>(n) * n;
    for (int i = 0; i < n; ++i) xd[i] = x0[i];
    std::fill(step, step + n, 0.0);
    int k = 0;
    while (k < maxIter) {
        ++k;
        if (supplies == 1.0)
            context->computeRhs(x0, f);
        else
            context->computeRhs(x0, f, supplies);
        // Where a limiter moved an unknown, the iteration goes on from there.
        for (int i = 0; i < n; ++i)
            if (x0[i] != static_cast<float>(xd[i])) xd[i] = x0[i];
        std::copy(x0.data(), x0.data() + n, previous.data());
        if (k > fixedPointSteps) {
            for (int i = 0; i < n; ++i) bd[i] = -static_cast<double>(f[i]);
            for (int j = 0; j < n; ++j) {
                const double t = xd[j];
                const double* column = Ad + static_cast<std::ptrdiff_t>(j) * n;
                for (int i = 0; i < n; ++i) bd[i] += column[i] * t;
            }
            std::copy(Ad, Ad + cells, J);
            context->addJacobianStamps(x0.data(), J);
            if (!diagonal) {
                reducedSolve(J);
            } else {
                for (int i = 0; i < n; ++i) step[i] = bd[i] / J[static_cast<std::ptrdiff_t>(i) * n + i];
            }
            for (int i = 0; i < n; ++i) {
                xd[i] -= relaxation * step[i];
                x0[i] = static_cast<float>(xd[i]);
            }
        } else {
            x0.noalias() = fixedPointLU.solve(f);
            for (int i = 0; i < n; ++i) {
                step[i] = static_cast<double>(x0[i]) - previous[i];
                xd[i] = previous[i] + relaxation * step[i];
                x0[i] = static_cast<float>(xd[i]);
            }
        }
        double worst = n > 0 ? std::fabs(step[0]) - relativeTollerance * std::fabs(xd[0]) - absolute : 0.0;
        for (int i = 1; i < n; ++i)
            worst = std::max(worst, std::fabs(step[i]) - relativeTollerance * std::fabs(xd[i]) - absolute);
        if (!(worst > 0)) break;
    }
    if (accelerate) std::copy(x0.data(), x0.data() + n, previous.data());
    std::copy(x0.data(), x0.data() + n, x.data());
    count(k);
    return k < maxIter;
}

} // namespace kelm
