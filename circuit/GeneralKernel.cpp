#include "circuit/GeneralKernel.h"

#include <algorithm>

namespace kelm {

GeneralKernel::GeneralKernel(MNAContext& c, Solver& s, int inputs) : context(c), solver(s), inputCount(inputs) {}

std::string GeneralKernel::describe() const {
    return std::to_string(context.size()) + " unknowns, the solver's own iteration on all of them";
}

bool GeneralKernel::run(BufferList& inputs, BufferList& outputs, size_t frames) {
    if (fresh) {
        solver.initMatrix();
        context.setMatrixChanged(false);
        fresh = false;
    }
    DenseVector& state = context.solution();
    const int* outputIndex = context.outputIndex().data();
    const int outputCount = std::min<int>(static_cast<int>(outputs.size()), static_cast<int>(context.outputIndex().size()));
    scalar* in = context.inputs() ? context.inputs()->data() : nullptr;
    for (size_t i = 0; i < frames; ++i) {
        for (int j = 0; j < inputCount; ++j) in[j] = inputs[j] ? inputs[j][i] : 0.0f;
        if (context.getAnalysisType() == AnalysisType::AC) context.notifyNextSample();
        if (context.matrixChanged()) {
            if (context.onlySignalStampsChanged())
                solver.restamp();
            else
                solver.initMatrix();
            context.setMatrixChanged(false);
        }
        // A sample that did not converge is played with its last iterate.
        solver.solve(state);
        for (int k = 0; k < outputCount; ++k) outputs[k][i] = state[outputIndex[k]];
    }
    return true;
}

} // namespace kelm
