#pragma once
#include <vector>

#include <Eigen/LU>

#include "circuit/Solver.h"
#include "engine/Types.h"
#include "solvers/AmplifierPortForm.h"
#include "solvers/PortSampleTerms.h"
#include "solvers/TriodePortForm.h"

namespace kelm {

// Damped Newton iteration per sample with a refactored Jacobian on every
// iteration, optional fixed-point steps first, and an optional prediction of
// the start from earlier samples ("Accelerate").
class NewtonSolver : public Solver {
public:
    void setProperties(const PropertyMapPtr& properties) override;
    void init(const std::shared_ptr<MNAContext>& context) override;
    void initMatrix() override;
    void restamp() override;
    bool solve(DenseVector& x) override;

    // Iterations used by the last solve (for benchmarks and tests).
    int lastIterations() const { return iterations; }
    int maxIterations() const { return maxIter; }
    // Running totals since init: solves, iterations, solves that used MaxIterations.
    long solveCount() const { return solves; }
    long iterationCount() const { return totalIterations; }
    long cappedCount() const { return capped; }
    // Runs every sample through the general path even where a specialised one
    // exists, and rebuilds A in full on every change (tests compare the two).
    void useGeneralPath(bool on) { generalOnly = on; }
    // Lets the specialised path take the Newton step on the ports of a sole triode or
    // LookupTableAmp where it can (the default), or keeps it on all unknowns (tests compare
    // the two).
    void usePortForm(bool on);
    // Whether solves take the step on a component's ports.
    bool portForm() const { return specialised() && (triodePorts.usable() || amplifierPorts.usable()); }
    // Whether the last solve took the specialised path.
    bool specialised() const { return fast != nullptr && !generalOnly && fixedPointSteps == 0 && !diagonal; }
    // Whether `twin` (the solver of a circuit built alike) can solve beside this one.
    bool canSolveBeside(const NewtonSolver& twin) const;
    // Solves this solver's circuit and twin's for one sample each, their iterations
    // interleaved so that the two independent chains overlap in the processor: the same
    // results, iteration counts and state as solve() on each. False, with nothing done,
    // when the two cannot run this way.
    bool solveTwin(DenseVector& x, NewtonSolver& twin, DenseVector& twinX);
    // Whether runSamples can run this circuit's samples: its only nonlinear element is a
    // triode on its port form, and its constant rhs comes from capacitors and voltage
    // sources alone.
    bool runsSamples() const {
        return specialised() && sampleLoop && triodePorts.usable() && sampleTerms.applies() && fastSamples;
    }
    // Lets runSamples run where it can (the default), or leaves every sample to the
    // per-sample path (tests compare the two).
    void useSampleLoop(bool on) { sampleLoop = on; }
    // Runs samples [from, to) of the circuit in one loop: the capacitors' update, the
    // sample's terms from their currents and the inputs (volts), the solve on the
    // triode's ports, and the outputs (the solution's entries at outputIndex) into
    // outputs. The samples, the state and the counts are those of the per-sample path
    // (the context's listeners, solve() and the outputs copied); only the generic rhs is
    // not asked. Returns the first sample not run: `from` where these samples cannot run
    // this way now (A changed, or a capacitor has yet to take its first step).
    size_t runSamples(BufferList& inputs, BufferList& outputs, const int* outputIndex, int outputCount, size_t from,
                      size_t to);

private:
    typedef bool (NewtonSolver::*SmallSolve)(DenseVector& x);
    typedef void (*TwinSolve)(NewtonSolver& a, DenseVector& xa, NewtonSolver& b, DenseVector& xb);
    typedef size_t (NewtonSolver::*SampleRun)(BufferList& inputs, BufferList& outputs, const int* outputIndex,
                                              int outputCount, size_t from, size_t to);
    template <int N, int M>
    struct SmallRun;
    template <int N, int M>
    static void solveSmallTwin(NewtonSolver& a, DenseVector& xa, NewtonSolver& b, DenseVector& xb);

    void reducedSolve(DenseMatrix& J);
    void predict(DenseVector& x);
    // The same iteration for an order of N with M solved unknowns, sizes known
    // to the compiler, the rhs of sources and capacitors taken once per sample.
    template <int N, int M>
    bool solveSmall(DenseVector& x);
    // runSamples with the sizes known.
    template <int N, int M>
    size_t runSmallSamples(BufferList& inputs, BufferList& outputs, const int* outputIndex, int outputCount,
                           size_t from, size_t to);
    // The small solves (alone and side by side) for n = N unknowns of which m are solved.
    template <int N, int M>
    void useSmall();
    template <int N>
    void pickSmall(int m);

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
    // The unknowns within a sample and the residual, in double: see solveSmall.
    std::vector<double> xWide, bWide;
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
    TriodePortForm triodePorts;
    AmplifierPortForm amplifierPorts;
    PortSampleTerms sampleTerms;
    bool portsAllowed = true;
    bool sampleLoop = true;
    void buildPorts();
    SmallSolve fast = nullptr;
    TwinSolve fastTwin = nullptr;
    SampleRun fastSamples = nullptr;
    bool generalOnly = false;
};

} // namespace kelm
