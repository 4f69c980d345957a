#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// Abstract ideal voltage source between a positive and a negative node. In
// fixed mode it imposes the voltage of its first non-ground node; in current
// mode it adds its current as an extra unknown.
class VoltageSource : public Component {
public:
    VoltageSource();
    scalar** getB() override { return useFixedVoltage ? nullptr : bStamp.rows(); }
    scalar** getC() override { return useFixedVoltage ? nullptr : cStamp.rows(); }
    int getNumberOfExtraVariables() override { return useFixedVoltage ? 0 : 1; }
    bool isFixedVoltage() override { return useFixedVoltage; }
    bool hasRhs() override { return true; }
    bool rhsReadsSolution() override { return false; }
    bool rhsAffineInInputs() override { return true; }
    virtual void readProperties(const PropertyMap& properties) = 0;

protected:
    // Chooses the mode from the node names, then reads the properties.
    void setupMode(const PropertyMap& properties);
    void fill(scalar v);

    Stamp bStamp;
    Stamp cStamp;
    bool useFixedVoltage = false;
    scalar rhs[3] = {0, 0, 0};
};

} // namespace kelm
