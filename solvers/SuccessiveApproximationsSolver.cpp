#include "solvers/SuccessiveApproximationsSolver.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/Str.h"
#include "solvers/SolverProperties.h"

namespace kelm {

void SuccessiveApproximationsSolver::setProperties(const PropertyMapPtr& properties) {
    using namespace solverprops;
    propertiesSet = false;
    const PropertyMap& p = *properties;
    auto positive = [&](const char* key, float& target) {
        const std::string k = key;
        require(p, k, target, "SuccessiveApproximations: " + k + " is not defined.");
        if (!(target > 0))
            throw InvalidArgumentException(str("SuccessiveApproximations: ", k, " must be greater than 0. ",
                                               k == "RelativeTollerance" ? "relativeTollerance" : k, "=", target));
    };
    positive("RelativeTollerance", relativeTollerance);
    positive("AbsoluteTollerance", absoluteTollerance);
    positive("InitialRelaxation", initialRelaxation);
    positive("MinRelaxation", minRelaxation);
    positive("MaxRelaxation", maxRelaxation);
    if (maxRelaxation > 2.0f) maxRelaxation = 2.0f;
    positive("Growth", growth);
    positive("Reduction", reduction);
    require(p, "MaxIterations", maxIter, "SuccessiveApproximations: MaxIterations is not defined.");
    if (maxIter < 1)
        throw InvalidArgumentException(
            str("SuccessiveApproximations: MaxIterations must be greater than 0. MaxIterations=", maxIter));
    propertiesSet = true;
}

void SuccessiveApproximationsSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    if (!propertiesSet)
        throw KELMException("SuccessiveApproximationsSolver: Properties must be set before calling init().");
    initMatrix();
    const int n = static_cast<int>(A.rows());
    for (DenseVector* v : {&f, &previous, &dx, &errors}) v->setZero(n);
    initialized = true;
}

void SuccessiveApproximationsSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    // Circuit matrices mix admittances of very different sizes (a bypass capacitor of
    // tens of siemens beside a plate resistor of 1e-5): Eigen's default rank threshold
    // would call such a matrix singular. Only a vanishing pivot counts here.
    lu.setThreshold(1e-30);
    lu.compute(A);
    invertible = A.rows() == A.cols() && lu.rank() == A.cols();
    if (invertible) {
        DenseMatrix inv = lu.inverse();
        if (inverse && static_cast<Eigen::Index>(inverse->rows()) == inv.rows())
            inverse->updateMatrix(inv.data(), inv.rows(), inv.cols());
        else
            inverse.reset(new PackedMatrix(inv.data(), inv.rows(), inv.cols()));
    }
}

bool SuccessiveApproximationsSolver::solve(DenseVector& x) {
    if (!initialized) throw KELMException("SuccessiveApproximationsSolver is not initialized");
    const int n = static_cast<int>(x.size());
    float err = absoluteTollerance + 1.0f;
    float lastErr = 0;
    float relaxation = initialRelaxation;
    int k = 0;
    while (err > absoluteTollerance && k < maxIter) {
        ++k;
        previous = x;
        context->computeRhs(x, f);
        if (invertible)
            inverse->product(f.data(), x.data(), n, n);
        else
            x = lu.solve(f);
        dx = x - previous;
        err = -INFINITY;
        for (int i = 0; i < n; ++i) err = std::max(err, std::fabs(dx[i]) - relativeTollerance * std::fabs(x[i]));
        if (err < absoluteTollerance && k > 1) break;
        if (k > maxIter) break;
        if (k > 1) {
            if (err > lastErr)
                relaxation = std::max(reduction * relaxation, minRelaxation);
            else
                relaxation = std::min(growth * relaxation, maxRelaxation);
            x = previous + relaxation * dx;
        }
        lastErr = err;
    }
    relaxationReached = relaxation;
    return k < maxIter;
}

} // namespace kelm
