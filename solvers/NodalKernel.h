#pragma once
#include <array>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "circuit/MNAContext.h"
#include "circuit/PortLayout.h"
#include "circuit/SampleKernel.h"

namespace kelm {

// One term of a row: coefficient times the unknown at index.
struct Term {
    int index;
    double coefficient;
};

// How the port form iterates on its devices' ports: a step has converged when every port
// voltage moved by at most relativeTolerance of its value plus absoluteTolerance (volts).
struct IterationSettings {
    double relativeTolerance = 1e-6;
    double absoluteTolerance = 1e-9;
    int maxIterations = 50;
    // The share of each Newton step taken (0 < relaxation <= 1).
    double relaxation = 1.0;
    // The start of each sample's iteration predicted from the last two solutions.
    bool accelerate = false;
    double errorCorrection = 0;
    int extrapolationOrder = 1;
};

// A circuit solved by the nodal DK method, in double: the linear part of the circuit is
// eliminated once per change of A, so that a sample costs the update of the reactive
// elements' states, a few products, and Newton's iteration on the stacked port voltages
// of the nonlinear devices alone. Without devices it is the circuit's discrete state-space
// form.
//
// With x = A^-1 rhs and rhs = Bz z + T y(v), where z holds the reactive states, the inputs
// (volts) and 1, y the devices' port currents and forced voltages, and v = E x their port
// voltages, every quantity a sample needs is a row of x: rows = Hz z + Hy y with
// Hz = Rows A^-1 Bz and Hy = Rows A^-1 T. The port rows give the devices' equation
// v = base + K y(v), solved by Newton's method on v. Conductances that follow the signal
// (a source impedance by table) are left out of A and added back by a low-rank (Woodbury)
// update of these products each sample.
class NodalKernel : public SampleKernel {
public:
    // The kernel for the circuit of `context` (analysed in AC, its counts of inputs and
    // outputs), or null with the reason where some component does not fit it.
    static std::unique_ptr<NodalKernel> make(MNAContext& context, const IterationSettings& settings, int inputs,
                                             int outputs, std::string& reason);
    ~NodalKernel() override;
    const char* name() const override { return P > 0 ? "port form" : "state-space"; }
    std::string describe() const override;
    bool run(BufferList& inputs, BufferList& outputs, size_t frames) override;
    void stateChanged() override { stateValid = false; }
    void matrixChanged() override { built = false; }
    bool canRunBeside(const SampleKernel& other) const override;
    bool runTwin(SampleKernel& other, BufferList& inputs, BufferList& outputs, BufferList& otherInputs,
                 BufferList& otherOutputs, size_t frames) override;

    int portCount() const { return P; }
    int deviceCount() const { return static_cast<int>(devices.size()); }
    // Running totals since the start: solves, iterations, solves that used MaxIterations.
    long solveCount() const { return solves; }
    long iterationCount() const { return iterations; }
    long cappedCount() const { return capped; }
    // How often the port iteration has factored J (the other steps reuse the last factors).
    long factorCount() const { return factored; }
    // How often A has been eliminated anew (at the start and after each change).
    long refreshCount() const { return refreshes; }


private:
    NodalKernel(MNAContext& context, const IterationSettings& settings);
    // Structure, once: which component is what, the rows and columns, the sizes.
    bool classify(int inputs, int outputs, std::string& reason);
    void allocate();
    // What follows from A (after a control moved, or the sample rate changed). False for a
    // singular A.
    bool refresh();
    // The sources' terms, read off them each block, and the state where someone else set it.
    void beginBlock();
    void loadState();
    void endBlock();
    // The sample loop; with RS and ZS above 0, the numbers of rows and of z's entries
    // known to the compiler.
    template <int RS, int ZS>
    void runSamples(BufferList& inputs, BufferList& outputs, size_t frames);
    template <int SS, int KS, int OS>
    void runLinear(BufferList& inputs, BufferList& outputs, size_t frames);
    // runLinear for this circuit and a twin of the same sizes in the two lanes of a register.
    template <int SS, int KS, int OS>
    void runLinearTwin(NodalKernel& twin, BufferList& inputs, BufferList& outputs, BufferList& twinInputs,
                       BufferList& twinOutputs, size_t frames);
    // The sample loops for the circuit's sizes, chosen once.
    void chooseLoops();
    // The port iteration of one sample from the port rows' part before the devices' (base),
    // the previous sample's rows (last) and the present K.
    void iterate(const double* base, const double* last, const double* K);
    // The convergence test on the step dv from the point ve, and the step itself into vv
    // (dv is left as the step taken). True when the iteration has converged. lastStep carries
    // the largest port step before (0 before the first). PS above 0: the ports' number known.
    template <int PS>
    bool takeStepSized(const double* ve, double* dv, double* vv, int ports, double& lastStep) const;
    // Whether a sample's first step dv (taken, to vv) ends the iteration by the rates that
    // earlier samples measured; near tells whether it lay within kFirstStepReach tolerances.
    template <int PS>
    bool firstStepEnds(const double* vv, const double* dv, int ports, double rate, double quadratic, bool& near) const;
    template <int PS, int QS>
    void iterateSized(const double* base, const double* last, const double* K);
    // The start of the port iteration from the last sample's ports (and, with Accelerate,
    // the ones before).
    template <int PS>
    void predictPorts(const double* last, double* start, int ports);
    typedef void (NodalKernel::*PortStep)(const double*, const double*, const double*);
    PortStep portStep = nullptr;
    // The terms of the row that state j of a memory component senses, with the gains of its
    // update folded in; returns their number.
    int memoryTerms(size_t component, const MemoryModel& model, int j, Term* out) const;
    // (Re)computes the Woodbury factor M and the corrected port matrix for the present
    // signal conductances.
    void updateConductanceTerms();
    // M (V x) for the conductances' row patterns V (G rows of `columns`): what each
    // conductance's column of Hg is to be taken by, less.
    void conductanceCorrection(const double* V, int columns, const double* x, double* out) const;
    void probeSources(const double* inputValues, double* rhs);
    double rowOf(const scalar* x, int r) const;

    MNAContext& context;
    IterationSettings settings;

    struct Device {
        Component* component;
        int port, ports;      // first port in v, number of ports
        int forced, outputs;  // first forced output in y (behind the currents), number of them
        int block;            // offset of its derivatives in jacobians: ports x ports, then outputs x ports
        bool memory;
    };
    struct Memory {
        Component* component;
        size_t index;       // in the context's components
        int state, states;  // first state in s, number of states
    };
    struct Signal {
        Component* component;
        int senseRow;
        int rowA, rowB;  // stamp rows (solved rows only, else -1)
        int colA, colB;  // stamp columns (-1 for ground)
        double value;
    };
    // A row is a linear functional of x: a sum of its terms.
    struct Row {
        int first, count;  // in terms
    };
    std::vector<Device> devices;
    // The devices' derivatives in the order of their blocks: output `output` of y by port
    // `port` of v, at `at` in jacobians.
    struct Slope {
        int output, port, at;
    };
    std::vector<Slope> slopes;
    std::vector<Memory> memories;
    std::vector<Signal> signals;
    std::vector<size_t> sources;  // component indices of the affine sources
    std::vector<Row> rows;
    std::vector<Term> terms;
    std::vector<int> outputRows;
    std::vector<double> feedback;  // per state: the share of the state that the next one keeps

    // Sizes: unknowns, ports, forced outputs, device outputs, states, inputs, rows, z, signals.
    int n = 0, P = 0, F = 0, Q = 0, S = 0, K = 0, R = 0, Z = 0, G = 0, O = 0;
    bool built = false, stateValid = false;

    // Per change of A.
    std::vector<double> A;             // A without the signal conductances, transposed, then its LU
    std::vector<int> pivots;
    std::vector<double> colsZ, colsY;  // Z and Q columns of n: states' and sources' rhs, devices' rhs
    std::vector<double> H0;            // R x n: the rows of A^-1
    std::vector<double> VA;            // G x n: the conductances' column patterns times A^-1
    std::vector<double> AinvU;         // G columns of n: A^-1 times their row patterns
    std::vector<double> Hz, Hy, Hg;    // R x Z, R x Q, R x G
    std::vector<double> Vz, Vy, W;     // G x Z, G x Q, G x G
    // Per sample.
    std::vector<double> s, z, base, now, previous, w;
    std::vector<double> v, vEval, y, yLin, jacobians, J, step, Kc, M, cz, cy, gScratch;
    std::vector<int> stepPivots;
    std::vector<double> vm1, vm2, predicted;
    std::vector<double> scratch;  // n entries
    std::vector<scalar> writtenX;
    std::vector<double> writtenStates;
    long solves = 0, iterations = 0, capped = 0, refreshes = 0, factored = 0;
    // The last factors of J and the order of their rows, for ports of known number up to 12 (for
    // four, the inverse of J itself).
    static constexpr int maxKeptPorts = 12;
    std::array<double, maxKeptPorts * maxKeptPorts> keptFactors{};
    std::array<int, maxKeptPorts> keptOrder{};
    bool factorsKept = false;
    // One device holds every port and forces no output: its block is dy/dv as it stands.
    bool soleDevice = false;
    // How a sample's second step has compared with its first, where the first was a chord
    // step (their ratio) or Newton's (the second over the first squared, 1/V); not a number
    // until measured.
    static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    double chordRate = kUnknown, newtonConstant = kUnknown;
    // The longest first step (in tolerances of each port) that may end a sample by the
    // measured rates: nearer than that, Newton's iteration is sure to be in its quadratic
    // reach, and a chord step's remainder is a measured share of a short step.
    static constexpr double kFirstStepReach = 4;
    std::vector<double> keptJacobians;  // the devices' slopes that the kept factors were made with
    // How far (a share of each) the devices' slopes may have moved from those of the kept
    // factors for a sample's first step to take them.
    static constexpr double kChordSlopeChange = 0.1;
    // Whether every device slope in blocks lies within `share` of its kept value.
    bool slopesNear(const double* blocks, double share) const;
    struct Loops;
    void (NodalKernel::*loop)(BufferList&, BufferList&, size_t) = nullptr;
    typedef void (NodalKernel::*TwinLoop)(NodalKernel&, BufferList&, BufferList&, BufferList&, BufferList&, size_t);
    TwinLoop twinLoop = nullptr;
};

} // namespace kelm
