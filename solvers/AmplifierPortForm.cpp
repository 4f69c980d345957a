#include "solvers/AmplifierPortForm.h"

#include <algorithm>

#include "circuit/MNAContext.h"
#include "math/SolvedBlockInverse.h"

namespace kelm {

bool AmplifierPortForm::build(MNAContext& context, const scalar* A, int n, int m) {
    amplifier = nullptr;
    auto* amp = dynamic_cast<LookupTableAmp*>(context.soleNonlinear(true));
    if (!amp || amp->usesFeedback() || !amp->drawsInputCurrent() || m < 1 || n > maxUnknowns) return false;
    const int in = amp->inputIndex(), out = amp->outputIndex();
    if (in < 0 || in >= m || out < m || out >= n) return false;
    // The output is imposed; the form leaves it out of the solved rows, so none may read it.
    // The inverse is that of A without the signal-dependent conductance, whose present value
    // the update per sample adds: so the samples do not depend on when A was last assembled.
    const scalar* steady = context.steadyMatrix();
    for (int r = 0; r < m; ++r)
        if (A[static_cast<size_t>(out) * n + r] != 0.0f || steady[static_cast<size_t>(out) * n + r] != 0.0f)
            return false;
    // At most one signal-dependent stamp, a conductance between two nodes.
    const Resistor* g = nullptr;
    if (context.signalDependentCount() > 1) return false;
    if (context.signalDependentCount() == 1) {
        Component* c = context.signalDependent(0);
        g = dynamic_cast<const Resistor*>(c);
        if (!g || c->getNumberOfExtraVariables() != 0 || !c->getNodes() || c->getNodes()->size() != 2) return false;
    }
    const int L = maxUnknowns;
    std::fill(inverse, inverse + L * L, 0.0);
    if (!invertSolvedBlock(steady, n, m, inverse, L)) return false;
    std::fill(column, column + L, 0.0);
    for (int i = 0; i < m; ++i) column[i] = inverse[in * L + i];
    std::fill(d, d + L, 0.0);
    std::fill(h, h + L, 0.0);
    hd = hColumn = 0;
    if (g) {
        // The conductance stamps +G on its own nodes' rows and columns and -G between them:
        // on the solved block that is G d d^T, with d +1 at its first node, -1 at its second.
        const std::vector<int>& nodes = *g->getNodes();
        if (nodes[0] >= 0 && nodes[0] < m) d[nodes[0]] += 1;
        if (nodes[1] >= 0 && nodes[1] < m) d[nodes[1]] -= 1;
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < m; ++j) h[i] += inverse[j * L + i] * d[j];
        for (int i = 0; i < m; ++i) hd += d[i] * h[i];
        // The column's update is alpha h (d . A0^-1 e_g).
        for (int i = 0; i < m; ++i) hColumn += d[i] * column[i];
    }
    conductance = g;
    input = in;
    output = out;
    amplifier = amp;
    return true;
}

} // namespace kelm
