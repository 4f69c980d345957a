#pragma once
#include <string>

#include "circuit/Component.h"
#include "circuit/MNAEventListener.h"
#include "circuit/Stamp.h"

namespace kelm {

// Capacitor ("Capacitance" in farads) as a companion model: an admittance in
// A and a current source carrying its memory. "IntegrationScheme" is
// "Trapezoidal" (default) or "BackwardEuler". Open in DC analysis.
class Capacitor : public Component, public MNAEventListener {
public:
    Capacitor();
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar** getG() override;
    scalar* getRhs(scalar* x) override;
    bool hasRhs() override { return true; }
    bool rhsReadsSolution() override { return false; }
    void setNodes(const NodeIndices& nodes) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;
    void sampleRateChanged(scalar rate) override;
    void nextSample() override;
    void analysisChanged(int oldType, int newType) override;

    scalar getCurrent() const { return current; }
    scalar getVoltage() const { return voltage; }
    scalar getAdmittance() const { return admittance; }
    // The companion model's update, next current = a v + b current (a in siemens),
    // which holds from the second sample of a transient on.
    double updateGain() const { return trapezoidal ? -2.0 * static_cast<double>(admittance) : -static_cast<double>(admittance); }
    double updateFeedback() const { return trapezoidal ? -1.0 : 0.0; }
    bool started() const { return !firstStep; }
    // nextSample's update from the solution x, for a caller that has made sure the
    // analysis is transient and the sample rate known.
    void advance(const scalar* x) {
        voltage = 0;
        if (nodeAValid) voltage = x[nodeA];
        if (nodeBValid) voltage = voltage - x[nodeB];
        if (firstStep) {
            current = -(admittance * voltage);
            firstStep = false;
        } else {
            current = trapezoidal ? static_cast<scalar>(-2.0 * static_cast<double>(admittance) * voltage) - current
                                  : static_cast<scalar>(-static_cast<double>(admittance) * voltage);
        }
        rhs[0] = -current;
        rhs[1] = current;
    }
    // Sets the state as nextSample would have left it, for a solver that runs the
    // update itself: the current (amperes) and the voltage it followed from (volts).
    void setState(scalar newCurrent, scalar newVoltage) {
        current = newCurrent;
        voltage = newVoltage;
        rhs[0] = -current;
        rhs[1] = current;
    }

private:

    void read(const PropertyMap& properties);
    void setCapacitance(scalar c);
    void fetchRate();

    Stamp stamp;
    scalar rhs[2] = {0, 0};
    scalar capacitance = 0;
    scalar sampleRate = -1.0f;
    scalar admittance = 0;
    scalar current = 0;
    scalar voltage = 0;
    bool nodeAValid = false;
    bool nodeBValid = false;
    int nodeA = 0, nodeB = 0;  // the rows of the two nodes in x, where valid
    bool firstStep = true;
    // "Trapezoidal": G = 2 C fs, next I = -2 G v - I; "BackwardEuler": G = C fs, next I = -G v.
    bool trapezoidal = true;
    double admittanceFor(double c, double fs) const { return trapezoidal ? 2.0 * c * fs : c * fs; }
};

} // namespace kelm
