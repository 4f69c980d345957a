#pragma once
#include <string>

#include "circuit/Component.h"
#include "circuit/MNAEventListener.h"
#include "circuit/Stamp.h"

namespace kelm {

// One or two magnetically coupled windings, each on a pair of nodes (+, -) with its current
// as an extra unknown. v = L di/dt with L the inductance matrix (H), discretised by the
// trapezoidal rule: v - 2 fs L i = -(2 fs L i' + v') with i', v' of the last sample, whose
// right-hand side is each winding's state (V). A short in DC analysis. The unknown of winding
// j is its current (A, entering at +) times a fixed resistance of the order of 2 fs L_jj, so
// that its row and column in A are of the order of one and of its neighbours' conductances:
// in float, a row of -2 fs L (some 1e5 ohms) beside 1e-6 S would lose the small ones.
class Windings : public Component, public MNAEventListener {
public:
    scalar** getB() override;
    scalar** getC() override;
    scalar** getD() override;
    scalar* getRhs(scalar* x) override;
    bool hasRhs() override { return true; }
    bool rhsReadsSolution() override { return false; }
    int getNumberOfExtraVariables() override { return count; }
    bool describeMemory(MemoryModel& model) override;
    void readMemory(double* states) const override;
    void writeMemory(const double* states) override;
    void sampleRateChanged(scalar rate) override;
    void nextSample() override;

    // The winding currents (A) of the last solution read by nextSample.
    double windingCurrent(int j) const { return current[j]; }
    // The resistance (ohms) by which winding j's unknown is its current.
    double unknownScale(int j) const { return scale[j]; }

protected:
    // Sets the count of windings and the inductance matrix (H); call in init with the node
    // count checked, then whenever the inductances change.
    void setInductances(int windings, double l11, double l22 = 0, double m = 0);
    void listen();

private:
    double rate() const;
    void refreshRhs();
    // The matrix that D and the state's update carry: 2 fs L_jl / scale_l.
    double impedance(int j, int l) const { return 2 * rate() * inductance[j][l] / scale[l]; }
    int count = 1;
    double inductance[2][2] = {};
    double scale[2] = {1, 1};
    double state[2] = {};
    double current[2] = {};
    scalar rhs[6] = {};
    Stamp b, c, d;
};

} // namespace kelm
