#pragma once
#include <vector>

#include <Eigen/Dense>

#include "circuit/Capacitor.h"
#include "circuit/MNAContext.h"
#include "engine/Types.h"

namespace kelm {

// A linear circuit run as a discrete-time state-space system in double: the
// states are the capacitors' companion currents (amperes) and voltages (volts),
// the inputs the circuit's inputs (volts), the outputs its output nodes (volts).
// Whenever A changes, the rows of its inverse that lead to the capacitors and
// the outputs are solved once, so that a sample costs a few products instead of
// the generic per-sample work (listeners, rhs of each component, the full
// solution). It applies to circuits whose right-hand side comes only from
// capacitors and voltage sources, with nothing nonlinear or signal-dependent.
class StateSpaceForm {
public:
    // Whether the circuit of this context can run in this form; then sizes
    // everything, so that nothing is allocated later (inputs, outputs: counts).
    bool prepare(MNAContext& context, int inputs, int outputs);
    bool applies() const { return eligible; }
    // True once every capacitor has taken its first step (which differs).
    bool ready() const;
    // Solves the rows of A's inverse again (after A or the sample rate changed).
    void invalidate() { built = false; }
    // Runs samples [from, to) of the block, then leaves the components and the
    // context's solution as the per-sample path would have left them. False,
    // with nothing done, when A turned out singular (the generic path reports it).
    bool process(BufferList& inputs, BufferList& outputs, size_t from, size_t to);
    // Runs the circuits of `a` and `b` (twins: the same sizes) over a whole block of n
    // samples side by side, in the two lanes of a register, with the samples and the
    // state that process() gives each. False, with nothing run, when the two differ in
    // size, either cannot run in this form, or the processor lacks the lanes.
    static bool processTwin(StateSpaceForm& a, BufferList& inputs, BufferList& outputs, StateSpaceForm& b,
                            BufferList& twinInputs, BufferList& twinOutputs, size_t n);

    // What the per-sample loop reads and advances.
    struct Kernel {
        int C, K, O;
        double *s, *v, *vUsed, *w;
        const double *gain, *feedback, *Hs, *Hw;
    };
    typedef void (*Run)(const Kernel&, BufferList&, BufferList&, size_t, size_t);
    typedef void (*TwinRun)(const Kernel&, BufferList&, BufferList&, const Kernel&, BufferList&, BufferList&, size_t);

private:
    void build();
    // The inputs' part of the outputs, taken again each block, and the state.
    void beginBlock();
    Kernel kernel();
    void loadState();
    void writeState(const double* inputs);
    // The rhs (dense, in double) that the sources give for the circuit's inputs (volts).
    void sourceRhs(const double* inputs, double* out);
    // The dense rhs of the port amplitudes in u.
    void portsToRhs(double* out);

    MNAContext* context = nullptr;
    bool eligible = false;
    bool built = false;
    bool stateValid = false;
    int n = 0, C = 0, K = 0, O = 0, R = 0;  // unknowns, capacitors, inputs, outputs, C + O
    std::vector<Capacitor*> capacitors;
    std::vector<Component*> sources;
    std::vector<int> nodeA, nodeB;          // capacitor nodes in x, -1 for ground
    std::vector<double> gain, feedback;      // the capacitors' updates
    Eigen::MatrixXd A;                       // summed in double
    Eigen::PartialPivLU<Eigen::MatrixXd> lu;
    std::vector<double> H;                   // R by n: capacitor voltages and outputs from the rhs
    std::vector<double> Hs;                  // R by C: from the capacitor currents
    std::vector<double> Hw;                  // R by K + 1: from the inputs, then the constant part
    std::vector<double> Bs;                  // n by C: the rhs of each capacitor's unit current
    std::vector<double> s, v, vUsed, w, b, b0;
    Eigen::VectorXd column, solved;
    std::vector<scalar> u, columnF;          // port amplitudes, a port's column
    std::vector<scalar> writtenX, writtenCurrent;
    Run run = nullptr;
    TwinRun twinRun = nullptr;  // null where no twin kernel fits the sizes
};

} // namespace kelm
