#include "solvers/PortSampleTerms.h"

#include "circuit/MNAContext.h"
#include "circuit/VoltageInputSource.h"
#include "circuit/VoltageSource.h"

namespace kelm {

bool PortSampleTerms::prepare(MNAContext& context, const Component* triode) {
    eligible = false;
    C = K = 0;
    if (!triode || !context.rhsSplits()) return false;
    for (Component* c : context.getComponents()) {
        if (c == triode || !c->hasRhs()) continue;
        if (c->rhsReadsSolution() || c->hasSignalDependentStamps()) return false;
        if (auto* capacitor = dynamic_cast<Capacitor*>(c)) {
            if (C == maxCapacitors) return false;
            capacitors[C++] = capacitor;
        } else if (!dynamic_cast<VoltageSource*>(c)) {
            return false;
        }
    }
    // Whatever else follows the samples would be skipped.
    for (MNAEventListener* l : context.listeners())
        if (!dynamic_cast<Capacitor*>(l) && !dynamic_cast<VoltageInputSource*>(l)) return false;
    const ScalarVectorPtr& inputs = context.inputs();
    K = inputs ? static_cast<int>(inputs->size()) : 0;
    if (K > maxInputs) return false;
    eligible = true;
    return true;
}

bool PortSampleTerms::ready(const MNAContext& context) const {
    if (context.getAnalysisType() != 1) return false;
    for (int c = 0; c < C; ++c)
        if (!capacitors[c]->started()) return false;
    return true;
}

void PortSampleTerms::rhsAt(MNAContext& context, scalar* F) {
    context.computeConstantRhs(context.solution().data(), F);
    context.writeFixedValues(F);
}

void PortSampleTerms::saveAndZero(MNAContext& context) {
    for (int c = 0; c < C; ++c) {
        savedCurrent[c] = capacitors[c]->getCurrent();
        savedVoltage[c] = capacitors[c]->getVoltage();
        setCapacitorCurrent(c, 0.0f);
    }
    for (int k = 0; k < K; ++k) {
        savedInput[k] = (*context.inputs())[k];
        setInput(context, k, 0.0f);
    }
}

void PortSampleTerms::setCapacitorCurrent(int c, scalar current) {
    capacitors[c]->setState(current, capacitors[c]->getVoltage());
}

void PortSampleTerms::setInput(MNAContext& context, int k, scalar value) { (*context.inputs())[k] = value; }

void PortSampleTerms::restore(MNAContext& context, scalar* F) {
    for (int c = 0; c < C; ++c) capacitors[c]->setState(savedCurrent[c], savedVoltage[c]);
    for (int k = 0; k < K; ++k) setInput(context, k, savedInput[k]);
    rhsAt(context, F);
}

} // namespace kelm
