#pragma once
#include "circuit/MNAEventListener.h"
#include "circuit/Resistor.h"

namespace kelm {

// The output impedance of a previous stage: a resistor whose admittance
// (siemens) follows the voltage of its first node by table, updated once per
// sample from the last solution rather than within the iteration.
class SourceAdmittance : public Resistor, public MNAEventListener {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;
    void propertyChanged(const std::string& name, scalar value) override { Resistor::propertyChanged(name, value); }
    void sampleRateChanged(scalar) override {}
    void nextSample() override;
    bool hasSignalDependentStamps() override { return true; }
    void setNodes(const NodeIndices& n) override;
    bool describeSignalConductance(SignalConductance& conductance) override;
    double updateSignalConductance(double sensed) override;

private:
    // The admittance (S) that the table gives for the first node at v volts; true where
    // it moved by at least the threshold and was taken.
    bool follow(scalar v);

    scalar vinMin = 0, vinMax = 0, inverseDelta = 0, deltaV = 0;
    scalar lastAdmittance = 0;
    scalar threshold = 0.1f;
    ScalarVectorPtr table;
    int inputRow = 0;  // the first node's row in x
};

} // namespace kelm
