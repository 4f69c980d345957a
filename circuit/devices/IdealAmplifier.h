#pragma once
#include "circuit/Component.h"

namespace kelm {

// Voltage-controlled voltage source: output node := Gain * V(input).
class IdealAmplifier : public Component {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }
    scalar* getRhs(scalar* x) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

private:
    scalar gain = 0;
    scalar rhs[2] = {0, 0};
};

} // namespace kelm
