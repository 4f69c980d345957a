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
    void analysisChanged(AnalysisType oldType, AnalysisType newType) override;

    // The companion source's current (amperes) and the voltage it last followed from (volts).
    double getCurrent() const { return current; }
    double getVoltage() const { return voltage; }
    scalar getAdmittance() const { return admittance; }
    bool describeMemory(MemoryModel& model) override;
    void readMemory(double* state) const override { state[0] = current; }
    void writeMemory(const double* state) override { setCurrent(state[0]); }

private:
    // The companion model's update from the voltage v (volts) of the last solution:
    // next current = gain v + feedback current.
    double updateGain() const { return trapezoidal ? -2.0 * static_cast<double>(admittance) : -static_cast<double>(admittance); }
    double updateFeedback() const { return trapezoidal ? -1.0 : 0.0; }
    void setCurrent(double c) {
        current = c;
        rhs[0] = static_cast<scalar>(-current);
        rhs[1] = static_cast<scalar>(current);
    }
    // The history that makes the first trapezoidal step of a transient from the operating
    // point (where no current flows) come out of the regular update: -G v.
    void startFrom(double v) {
        voltage = v;
        setCurrent(-static_cast<double>(admittance) * v);
    }

    void read(const PropertyMap& properties);
    void setCapacitance(scalar c);
    void fetchRate();

    Stamp stamp;
    scalar rhs[2] = {0, 0};
    scalar capacitance = 0;
    scalar sampleRate = -1.0f;
    scalar admittance = 0;
    double current = 0;
    double voltage = 0;
    bool nodeAValid = false;
    bool nodeBValid = false;
    int nodeA = 0, nodeB = 0;  // the rows of the two nodes in x, where valid
    // True until the first step of a transient: until then the history follows the rate.
    bool firstStep = true;
    // "Trapezoidal": G = 2 C fs, next I = -2 G v - I; "BackwardEuler": G = C fs, next I = -G v.
    bool trapezoidal = true;
    double admittanceFor(double c, double fs) const { return trapezoidal ? 2.0 * c * fs : c * fs; }
};

} // namespace kelm
