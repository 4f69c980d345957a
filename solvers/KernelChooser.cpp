#include "solvers/KernelChooser.h"

namespace kelm {

std::unique_ptr<SampleKernel> KernelChooser::choose(MNAContext& context, const Request& request, int inputs,
                                                    int outputs, std::string& reason) {
    if (!request.refusal.empty()) {
        reason = request.refusal;
        return nullptr;
    }
    std::string why;
    std::unique_ptr<NodalKernel> kernel = NodalKernel::make(context, request.settings, inputs, outputs, why);
    if (!kernel) {
        reason = why;
        return nullptr;
    }
    if (kernel->portCount() > 0 && !request.iterates) {
        reason = "the Linear solver evaluates the nonlinear devices once per sample";
        return nullptr;
    }
    if (kernel->portCount() == 0)
        reason = "a linear circuit: its states and inputs give each sample";
    else
        reason = "every nonlinear device is on its ports; the linear part is eliminated once per change of A";
    return kernel;
}

} // namespace kelm
