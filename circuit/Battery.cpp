#include "circuit/Battery.h"

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

void Battery::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                   const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2) throw InvalidArgumentException("Battery must have two nodes");
    setupMode(*properties);
}

void Battery::readProperties(const PropertyMap& p) {
    p.readOptional("UseFixedVoltage", useFixedVoltage);
    p.readRequired("Voltage", voltage, KELMException("Voltage is not defined. Battery name=" + elementName));
    fill(voltage);
}

void Battery::propertiesChanged(const PropertyMapPtr& properties) {
    readProperties(*properties);
    context->setMatrixChanged(true);
}

void Battery::propertyChanged(const std::string& name, scalar value) {
    if (name != "Voltage")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". Battery name=" +
                                       elementName);
    // The rhs array is refilled only by readProperties: the new voltage takes
    // effect at the next propertiesChanged.
    voltage = value;
    context->setMatrixChanged(true);
}

} // namespace kelm
