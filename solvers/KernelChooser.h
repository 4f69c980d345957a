#pragma once
#include <memory>
#include <string>

#include "circuit/MNAContext.h"
#include "circuit/SampleKernel.h"
#include "solvers/NodalKernel.h"

namespace kelm {

// The one place that chooses how a circuit's samples are computed. A linear circuit runs
// as a state-space system and a nonlinear one in the port form (both NodalKernel), unless
// the document asks for what only the general iteration does (fixed-point steps, the
// diagonal Newton step, the other solver types) or a component fits no kernel.
class KernelChooser {
public:
    // What the solver asks of the kernels: whether it iterates on nonlinear components
    // (Newton) or evaluates them once per sample; its iteration's settings; and, where
    // only its own iteration will do, why (refusal, else empty).
    struct Request {
        bool iterates = true;
        IterationSettings settings;
        std::string refusal;
    };
    // The kernel, with the reason for the choice; or null with the reason why the
    // general iteration runs the circuit.
    static std::unique_ptr<SampleKernel> choose(MNAContext& context, const Request& request, int inputs, int outputs,
                                                std::string& reason);
};

} // namespace kelm
