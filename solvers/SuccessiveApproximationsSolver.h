#pragma once
#include <memory>

#include <Eigen/LU>

#include "math/PackedMatrix.h"
#include "circuit/Solver.h"

namespace kelm {

// Iterates x = inverse(A) rhs(x) with a relaxation factor that grows while the
// error falls and shrinks when it rises; needs no Jacobian.
class SuccessiveApproximationsSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    bool solve(DenseVector& x) override;
    // The relaxation factor reached in the last solve (for tests).
    float lastRelaxation() const { return relaxationReached; }
    float maxRelaxationSetting() const { return maxRelaxation; }

private:
    float relativeTollerance = 0;
    float absoluteTollerance = 0;
    float minRelaxation = 0;
    float initialRelaxation = 0;
    float maxRelaxation = 0;
    float growth = 0;
    float reduction = 0;
    int maxIter = 0;
    DenseMatrix A;
    Eigen::FullPivLU<DenseMatrix> lu;
    bool invertible = false;
    std::unique_ptr<PackedMatrix> inverse;
    DenseVector f, previous, dx, errors;
    bool propertiesSet = false;
    bool initialized = false;
    float relaxationReached = 0;
};

} // namespace kelm
