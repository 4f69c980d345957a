#pragma once
#include <memory>

#include <Eigen/LU>

#include "math/PackedMatrix.h"
#include "circuit/Solver.h"

namespace kelm {

// A plain solve with A first, then per-unknown secant steps on the residual;
// needs no Jacobian from the components.
class SimplifiedNewtonSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    bool solve(DenseVector& x) override;

private:
    float relativeTollerance = 0;
    float absoluteTollerance = 0;
    int maxIter = 0;
    DenseMatrix A;
    Eigen::FullPivLU<DenseMatrix> lu;
    bool invertible = false;
    std::unique_ptr<PackedMatrix> packed;
    DenseVector f, xPrevious, dx, r, rPrevious, slope;
    bool propertiesSet = false;
    bool initialized = false;
};

} // namespace kelm
