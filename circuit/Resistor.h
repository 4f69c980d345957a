#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// A resistor between two nodes ("Resistance" in ohms; 0 is a 1e12 siemens short).
class Resistor : public Component {
public:
    Resistor() : stamp(2, 2) {}
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar** getG() override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;
    // Admittance in siemens.
    scalar getAdmittance() const { return admittance; }

protected:
    void readResistance(const PropertyMap& properties);
    static scalar admittanceOf(scalar r) { return r == 0.0f ? 999999995904.0f : 1.0f / r; }

    scalar admittance = 0;
    Stamp stamp;
};

} // namespace kelm
