#pragma once
#include "circuit/VoltageSource.h"

namespace kelm {

// A constant voltage source ("Voltage" in volts).
class Battery : public VoltageSource {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar* getRhs(scalar*) override { return rhs; }
    void readProperties(const PropertyMap& properties) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

private:
    scalar voltage = 0;
};

} // namespace kelm
