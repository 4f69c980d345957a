#pragma once
#include <vector>

#include "solvers/Solver.h"

namespace kelm {

// For circuits whose rhs needs no iteration: factors A once per change and
// does one back-substitution per sample.
class LinearSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr&) override {}
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    bool solve(DenseVector& x) override;
    // Number of factorisations done so far (for tests and benchmarks).
    long factorizations() const { return factorCount; }

private:
    DenseMatrix A;
    DenseVector rhs;
    DenseVector spare;
    int n = 0;
    std::vector<int> pivots;
    int status = 0;
    long factorCount = 0;
};

} // namespace kelm
