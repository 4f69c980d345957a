#include "circuit/devices/Windings.h"

#include "circuit/MNAContext.h"

namespace kelm {

namespace {
// The sample rate (Hz) at which an unknown's scale makes D's diagonal -1; any other rate
// leaves it within a small factor of one.
constexpr double kScaleRate = 96000;
} // namespace

void Windings::setInductances(int windings, double l11, double l22, double m) {
    count = windings;
    inductance[0][0] = l11;
    inductance[1][1] = l22;
    inductance[0][1] = inductance[1][0] = m;
    for (int j = 0; j < count; ++j) scale[j] = inductance[j][j] > 0 ? 2 * kScaleRate * inductance[j][j] : 1;
    const int k = 2 * count;
    b.resize(k, count);
    c.resize(count, k);
    d.resize(count, count);
    for (int j = 0; j < count; ++j) {
        b(2 * j, j) = static_cast<scalar>(1 / scale[j]);
        b(2 * j + 1, j) = static_cast<scalar>(-1 / scale[j]);
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
    if (context->getAnalysisType() == AnalysisType::DC) return nullptr;
    for (int j = 0; j < count; ++j)
        for (int l = 0; l < count; ++l) d(j, l) = static_cast<scalar>(-impedance(j, l));
    return d.rows();
}

scalar* Windings::getRhs(scalar*) {
    if (context->getAnalysisType() == AnalysisType::DC) return nullptr;
    return rhs;
}

bool Windings::describeMemory(MemoryModel& model) {
    const int k = 2 * count;
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
        for (int l = 0; l < count; ++l) model.gain[j][l] = -impedance(j, l);
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
    if (context->getAnalysisType() == AnalysisType::DC) return;
    const DenseVector& x = context->solution();
    const NodeIndices& n = getNodes();
    auto at = [&x](int row) { return row < 0 ? 0.0 : static_cast<double>(x[row]); };
    double w[2];
    for (int j = 0; j < count; ++j) {
        w[j] = at(firstExtraVariable + j);
        current[j] = w[j] / scale[j];
    }
    for (int j = 0; j < count; ++j) {
        double s = -(at((*n)[2 * j]) - at((*n)[2 * j + 1]));
        for (int l = 0; l < count; ++l) s -= impedance(j, l) * w[l];
        state[j] = s;
    }
    refreshRhs();
}

} // namespace kelm
