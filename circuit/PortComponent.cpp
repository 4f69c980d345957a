#include "circuit/PortComponent.h"

#include <algorithm>

#include "circuit/MNAContext.h"

namespace kelm {

int PortComponent::addInternalNode(const std::string& suffix) {
    nodeNames->push_back(elementName + "#" + suffix);
    return static_cast<int>(nodeNames->size()) - 1;
}

void PortComponent::finishPorts() {
    const int k = nodeCount();
    jacobian.resize(k, k);
    rhs.assign(k, 0.0f);
    context->addListener(this);
}

void PortComponent::setNodes(const NodeIndices& n) { Component::setNodes(n); }

void PortComponent::portVoltages(const scalar* x, double* v) const {
    for (int p = 0; p < layout.ports; ++p) v[p] = terminal(x, layout.plus[p]) - terminal(x, layout.minus[p]);
}

void PortComponent::evaluateAt(const scalar* x) {
    const int P = layout.ports, F = layout.forcedCount;
    double asked[maxDevicePorts], v[maxDevicePorts], i[maxDevicePorts], di[maxDevicePorts * maxDevicePorts];
    double f[maxForcedOutputs] = {}, df[maxForcedOutputs * maxDevicePorts] = {};
    portVoltages(x, asked);
    if (cached && std::equal(asked, asked + P, lastAsked)) return;
    std::copy(asked, asked + P, lastAsked);
    cached = true;
    std::copy(asked, asked + P, v);
    evaluatePorts(v, i, di, f, df);
    std::fill(rhs.begin(), rhs.end(), 0.0f);
    jacobian.zero();
    for (int p = 0; p < P; ++p) {
        // The current linearised at the evaluated point, at the point asked for.
        double current = i[p];
        for (int q = 0; q < P; ++q) current += di[p * P + q] * (asked[q] - v[q]);
        const int a = layout.plus[p], b = layout.minus[p];
        if (a >= 0) rhs[a] -= static_cast<scalar>(current);
        if (b >= 0) rhs[b] += static_cast<scalar>(current);
        // d(current p)/d(port q) enters rows a, b and columns of q's terminals.
        for (int q = 0; q < P; ++q) {
            const scalar g = static_cast<scalar>(di[p * P + q]);
            if (g == 0.0f) continue;
            const int c = layout.plus[q], d = layout.minus[q];
            if (a >= 0 && c >= 0) jacobian(a, c) += g;
            if (a >= 0 && d >= 0) jacobian(a, d) -= g;
            if (b >= 0 && c >= 0) jacobian(b, c) -= g;
            if (b >= 0 && d >= 0) jacobian(b, d) += g;
        }
    }
    for (int o = 0; o < F; ++o) {
        double value = f[o];
        for (int q = 0; q < P; ++q) value += df[o * P + q] * (asked[q] - v[q]);
        rhs[layout.forced[o]] = static_cast<scalar>(value);
    }
}

scalar* PortComponent::getRhs(scalar* x) {
    evaluateAt(x);
    return rhs.data();
}

scalar** PortComponent::getJacobian(scalar* x) {
    evaluateAt(x);
    return jacobian.rows();
}

scalar* PortComponent::evaluate(scalar* x, scalar**& stamp) {
    evaluateAt(x);
    stamp = jacobian.rows();
    return rhs.data();
}

void PortComponent::nextSample() {
    cached = false;
    if (!hasPortMemory() || context->getAnalysisType() == AnalysisType::DC) return;
    double v[maxDevicePorts];
    portVoltages(context->solution().data(), v);
    acceptPorts(v);
}

} // namespace kelm
