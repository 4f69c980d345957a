#pragma once
#include <memory>
#include <vector>

#include "circuit/Solver.h"

namespace kelm {

// For circuits whose rhs needs no iteration: factors A once per change and
// solves each sample with the factors. The right-hand side is a sum of a few
// constant columns ("ports" of the context) times per-sample amplitudes, so
// when A changes each port's response is solved once from the LU factors, and
// a sample costs one product of those responses with the amplitudes that are
// not zero. Each response is a plain solve, so the result is as accurate as
// solving the whole right-hand side with the factors.
class LinearSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr&) override {}
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    bool solve(DenseVector& x) override;
    std::unique_ptr<SampleKernel> makeKernel(int inputs, int outputs, std::string& reason) override;
    // Number of factorisations done so far (for tests and benchmarks).
    long factorizations() const { return factorCount; }
    // x := responses times amplitudes (responses, amplitudes, ports, x, n).
    typedef void (*Combine)(const float*, const float*, int, float*, int);

private:
    DenseMatrix A;
    DenseVector spare;
    int n = 0;
    std::vector<int> pivots;
    int status = 0;
    long factorCount = 0;
    DenseMatrix responses;  // n by ports: the solution for each port's unit amplitude
    DenseVector amplitudes;
    Combine combiner = nullptr;
};

} // namespace kelm
