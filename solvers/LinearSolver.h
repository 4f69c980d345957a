#pragma once
#include <memory>
#include <vector>

#include "solvers/Solver.h"

namespace kelm {

// For circuits whose rhs needs no iteration: factors A once per change and
// solves each sample with the factors. The solve applies the inverse that the
// factorisation yields (formed column by column with lubksb when A changes):
// one product per sample instead of two dependent triangular sweeps, in which
// the many zero entries of a circuit's right-hand side cost nothing.
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
    DenseMatrix inverse;  // column-major, formed from the LU factors
};

} // namespace kelm
