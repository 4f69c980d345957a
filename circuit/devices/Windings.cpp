#include "circuit/devices/Windings.h"

#include "circuit/MNAContext.h"

namespace kelm {

void Windings::setInductances(int windings, double l11, double l22, double m) {
    count = windings;
    inductance[0][0] = l11;
    inductance[1][1] = l22;
    inductance[0][1] = inductance[1][0] = m;
    const int k = 2 * count;
    b.resize(k, count);
    c.resize(count, k);
    d.resize(count, count);
    for (int j = 0; j < count; ++j) {
        b(2 * j, j) = 1;
        b(2 * j + 1, j) = -1;
        c(j, 2 * j) = 1;
        c(j, 2 * j + 1) = -1;
    }
    if (context && context->isInitialized()) context->setMatrixChanged(true);
}

void Windings::listen() { context->addListener(this); }

double Windings::rate() const { return static_cast<double>(context->getSampleRate()); }

scalar** Windings::getB() { return b.rows(); }
scalar** Windings::getC() { return c.rows(); }

scalar** Windings::getD() {
    if (context->getAnalysisType() == 0) return nullptr;
    const double z = 2 * rate();
    for (int j = 0; j < count; ++j)
        for (int l = 0; l < count; ++l) d(j, l) = static_cast<scalar>(-z * inductance[j][l]);
    return d.rows();
}

scalar* Windings::getRhs(scalar*) {
    if (context->getAnalysisType() == 0) return nullptr;
    return rhs;
}

bool Windings::describeMemory(MemoryModel& model) {
    const int k = 2 * count;
    const double z = 2 * rate();
    model = MemoryModel();
    model.states = count;
    model.senses = 2 * count;
    for (int j = 0; j < count; ++j) {
        // Senses: the winding currents, then the winding voltages.
        model.sensePlus[j] = k + j;
        model.senseMinus[j] = -1;
        model.sensePlus[count + j] = 2 * j;
        model.senseMinus[count + j] = 2 * j + 1;
        model.inject[k + j][j] = 1;
        for (int l = 0; l < count; ++l) model.gain[j][l] = -z * inductance[j][l];
        model.gain[j][count + j] = -1;
    }
    return true;
}

void Windings::readMemory(double* states) const {
    for (int j = 0; j < count; ++j) states[j] = state[j];
}

void Windings::writeMemory(const double* states) {
    for (int j = 0; j < count; ++j) state[j] = states[j];
    refreshRhs();
}

void Windings::refreshRhs() {
    for (int j = 0; j < count; ++j) rhs[2 * count + j] = static_cast<scalar>(state[j]);
}

void Windings::sampleRateChanged(scalar) {
    if (context->isInitialized()) context->setMatrixChanged(true);
}

void Windings::nextSample() {
    if (context->getAnalysisType() == 0) return;
    const DenseVector& x = context->solution();
    const NodeIndices& n = getNodes();
    auto at = [&x](int row) { return row < 0 ? 0.0 : static_cast<double>(x[row]); };
    const double z = 2 * rate();
    for (int j = 0; j < count; ++j) current[j] = at(firstExtraVariable + j);
    for (int j = 0; j < count; ++j) {
        const double v = at((*n)[2 * j]) - at((*n)[2 * j + 1]);
        double s = -v;
        for (int l = 0; l < count; ++l) s -= z * inductance[j][l] * current[l];
        state[j] = s;
    }
    refreshRhs();
}

} // namespace kelm
