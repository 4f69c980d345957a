#include "solvers/SimplifiedNewtonSolver.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/Str.h"
#include "solvers/SolverProperties.h"

namespace kelm {

void SimplifiedNewtonSolver::setProperties(const PropertyMapPtr& properties) {
    using namespace solverprops;
    propertiesSet = false;
    const PropertyMap& p = *properties;
    require(p, "RelativeTollerance", relativeTollerance, "SimplifiedNewtonSolver: RelativeTollerance is not defined.");
    if (!(relativeTollerance > 0))
        throw InvalidArgumentException(str(
            "SimplifiedNewtonSolver: RelativeTollerance must be greater than 0. relativeTollerance=", relativeTollerance));
    require(p, "AbsoluteTollerance", absoluteTollerance, "SimplifiedNewtonSolver: AbsoluteTollerance is not defined.");
    if (!(absoluteTollerance > 0))
        throw InvalidArgumentException(str(
            "SimplifiedNewtonSolver: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=", absoluteTollerance));
    require(p, "MaxIterations", maxIter, "SimplifiedNewtonSolver: MaxIterations is not defined.");
    if (maxIter < 1)
        throw InvalidArgumentException(
            str("SimplifiedNewtonSolver: MaxIterations must be greater than 0. MaxIterations=", maxIter));
    propertiesSet = true;
}

void SimplifiedNewtonSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    if (!propertiesSet) throw KELMException("SimplifiedNewtonSolver: Properties must be set before calling init().");
    initMatrix();
    const int n = static_cast<int>(A.rows());
    for (DenseVector* v : {&f, &xPrevious, &dx, &r, &rPrevious, &slope}) v->setZero(n);
    initialized = true;
}

void SimplifiedNewtonSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    // Circuit matrices mix admittances of very different sizes (a bypass capacitor of
    // tens of siemens beside a plate resistor of 1e-5): Eigen's default rank threshold
    // would call such a matrix singular. Only a vanishing pivot counts here.
    lu.setThreshold(1e-30);
    lu.compute(A);
    invertible = lu.isInvertible();
    if (packed && static_cast<Eigen::Index>(packed->rows()) == A.rows() && static_cast<Eigen::Index>(packed->cols()) == A.cols())
        packed->updateMatrix(A.data(), A.rows(), A.cols());
    else
        packed.reset(new PackedMatrix(A.data(), A.rows(), A.cols()));
}

bool SimplifiedNewtonSolver::solve(DenseVector& x) {
    if (!initialized) throw KELMException("SimplifiedNewtonSolver is not initialized.");
    const int n = static_cast<int>(x.size());
    dx.setZero();
    int k = 0;
    float err = 10.0f;
    while (err > absoluteTollerance && k < maxIter) {
        ++k;
        context->computeRhs(x, f);
        packed->product(x.data(), r.data(), n, n);
        r -= f;
        if (k > 1)
            for (int i = 0; i < n; ++i) {
                const float d = r[i] - rPrevious[i];
                if (std::fabs(d) > 1e-8f) slope[i] = (x[i] - xPrevious[i]) / d;
            }
        rPrevious = r;
        xPrevious = x;
        if (k > 1)
            for (int i = 0; i < n; ++i) x[i] = x[i] - slope[i] * r[i];
        else
            x = lu.solve(f);
        dx = x - xPrevious;
        err = -INFINITY;
        for (int i = 0; i < n; ++i) err = std::max(err, std::fabs(dx[i]) - relativeTollerance * std::fabs(x[i]));
    }
    return k < maxIter;
}

} // namespace kelm
