#pragma once
#include <vector>

#include <Eigen/LU>

#include "circuit/Solver.h"
#include "engine/Types.h"

namespace kelm {

// Damped Newton iteration per sample with a refactored Jacobian on every
// iteration, optional fixed-point steps first, and an optional prediction of
// the start from earlier samples ("Accelerate"). Where the circuit allows, a solve
// kernel runs its samples with the same settings (makeKernel).
class NewtonSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    void restamp() override;
    bool solve(DenseVector& x) override;
    bool solveFromSupplies(DenseVector& x) override;
    std::unique_ptr<SampleKernel> makeKernel(int inputs, int outputs, std::string& reason) override;

    // Iterations used by the last solve (for benchmarks and tests).
    int lastIterations() const { return iterations; }
    int maxIterations() const { return maxIter; }
    // Running totals since init: solves, iterations, solves that used MaxIterations.
    long solveCount() const { return solves; }
    long iterationCount() const { return totalIterations; }
    long cappedCount() const { return capped; }

private:
    // The Newton step from the residual (bWide) and the Jacobian J (double, column-major),
    // into stepWide.
    void reducedSolve(double* J);
    // solve() with the sources' constant part of the rhs scaled by `supplies`; each unknown's
    // last step within `absolute` (V) more than its relative tolerance counts as converged.
    bool iterate(DenseVector& x, double supplies, double absolute = 0);
    // Whether the last iteration's last step lay within SPICE's test: every unknown moved by at
    // most its relative tolerance plus the absolute one.
    bool settledWithinAbsolute() const;
    void predict(DenseVector& x);

    float relativeTollerance = 0;
    float absoluteTollerance = 0;
    float relaxation = 1.0f;
    int maxIter = 0;
    int fixedPointSteps = 0;
    bool diagonal = false;
    bool accelerate = false;
    float errorCorrectionFactor = 0;
    int extrapolationOrder = 1;

    DenseMatrix A;
    Eigen::PartialPivLU<DenseMatrix> fixedPointLU;
    DenseVector f, previous, dx, errors, b, xm1, xm2, x0, predicted;
    // The unknowns within a sample and the residual, in double: the residual A x - f
    // cancels terms of the order of the supply.
    std::vector<double> xWide, bWide, stepWide, matrixWide, jacobianWide, blockWide;
    int n = 0;
    int m = 0;
    int lda = 0;
    std::vector<int> pivots;
    int status = 0;
    bool propertiesSet = false;
    bool initialized = false;
    int iterations = 0;
    long solves = 0, totalIterations = 0, capped = 0;
    void count(int k) {
        iterations = k;
        ++solves;
        totalIterations += k;
        capped += k >= maxIter;
    }
};

} // namespace kelm
