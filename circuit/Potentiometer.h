#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// Linear potentiometer: nodes end a, wiper, end b. "Resistance" is the whole
// track in ohms, "Wiper" the position from 0 (end a) to 1 (end b).
class Potentiometer : public Component {
public:
    Potentiometer() : stamp(3, 3) {}
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar** getG() override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;
    scalar getWiper() const { return wiper; }

private:
    void read(const PropertyMap& properties);
    void setWiper(scalar w);

    scalar admittanceA = 0;
    scalar admittanceB = 0;
    scalar resistance = 0;
    scalar wiper = 0;
    Stamp stamp;
};

} // namespace kelm
