#pragma once
#include "circuit/devices/Windings.h"

namespace kelm {

// Inductor ("Inductance" in henries) on two nodes, its current an extra unknown, discretised
// by the trapezoidal rule like the capacitor. A short in DC analysis.
class Inductor : public Windings {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

private:
    void setInductance(double l);
};

} // namespace kelm
