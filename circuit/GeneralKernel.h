#pragma once
#include "circuit/MNAContext.h"
#include "circuit/SampleKernel.h"
#include "circuit/Solver.h"

namespace kelm {

// The sample loop of any solver on any circuit: per sample the inputs into the context,
// the components' step to the next sample (listeners), a changed A into the solver, the
// solver's solve on all unknowns, and the output nodes read out.
class GeneralKernel : public SampleKernel {
public:
    GeneralKernel(MNAContext& context, Solver& solver, int inputs);
    const char* name() const override { return "general"; }
    std::string describe() const override;
    bool run(BufferList& inputs, BufferList& outputs, size_t frames) override;
    void stateChanged() override {}
    void matrixChanged() override { fresh = true; }

private:
    MNAContext& context;
    Solver& solver;
    int inputCount;
    // A may have changed while another kernel ran: the solver takes it again first.
    bool fresh = true;
};

} // namespace kelm
