#pragma once
#include <string>

#include "engine/Types.h"

namespace kelm {

// How a circuit computes its samples: a solve kernel owns the sample loop of one
// Circuit (inputs in volts in, output node voltages in volts out). The kernel is chosen
// for the circuit when it starts and again when it cannot go on (see Solver::makeKernel).
class SampleKernel {
public:
    virtual ~SampleKernel() {}
    // The kernel's name as `kelm info` prints it ("state-space", "port form", "general").
    virtual const char* name() const = 0;
    // A short account of its sizes (ports, states, unknowns), for `kelm info`.
    virtual std::string describe() const = 0;
    // Runs `frames` samples. False, with nothing done, where this kernel cannot run the
    // circuit as it now stands (its matrix became singular): the circuit then chooses again.
    virtual bool run(BufferList& inputs, BufferList& outputs, size_t frames) = 0;
    // The circuit's state was set or advanced by someone else (a start, another kernel):
    // the kernel takes it from the components and the context before its next sample.
    virtual void stateChanged() = 0;
    // The sample rate or a property changed what the kernel prepared from A.
    virtual void matrixChanged() = 0;
    // Whether this kernel and `other` (of a circuit built alike: the two channels of a
    // stereo document) can run their blocks side by side through runTwin.
    virtual bool canRunBeside(const SampleKernel& /*other*/) const { return false; }
    // Runs `frames` samples of both circuits side by side, with the samples each gives
    // alone. False, with nothing done, where the two cannot run so now.
    virtual bool runTwin(SampleKernel& /*other*/, BufferList& /*inputs*/, BufferList& /*outputs*/,
                         BufferList& /*otherInputs*/, BufferList& /*otherOutputs*/, size_t /*frames*/) {
        return false;
    }
};

} // namespace kelm
