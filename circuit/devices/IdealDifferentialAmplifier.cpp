#include "circuit/devices/IdealDifferentialAmplifier.h"

#include "engine/InvalidArgumentException.h"

namespace kelm {

void IdealDifferentialAmplifier::init(const std::string& name, const PropertyMapPtr& properties,
                                      const NodeNames& names, const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 3) throw InvalidArgumentException("IdealDifferentialAmplifier must have three nodes");
    if (isGround((*nodeNames)[0]) || isGround((*nodeNames)[1]))
        throw InvalidArgumentException(
            "IdealDifferentialAmplifier cannot have a grounded node. IdealDifferentialAmplifier name=" + name);
    fixedVoltageNode = (*nodeNames)[2];
    properties->readRequired("Gain", gain,
                             InvalidArgumentException("Gain is not defined. IdealDifferentialAmplifier name=" + name));
    layout = PortLayout();
    layout.addPort(0, 1);
    layout.addForced(2);
}

scalar* IdealDifferentialAmplifier::getRhs(scalar* x) {
    rhs[0] = 0;
    rhs[1] = 0;
    rhs[2] = gain * (x[(*nodes)[0]] - x[(*nodes)[1]]);
    return rhs;
}

void IdealDifferentialAmplifier::propertiesChanged(const PropertyMapPtr& properties) {
    properties->readRequired(
        "Gain", gain, InvalidArgumentException("Gain is not defined. IdealDifferentialAmplifier name=" + elementName));
}

void IdealDifferentialAmplifier::propertyChanged(const std::string& name, scalar value) {
    if (name != "Gain")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name +
                                       ". IdealDifferentialAmplifier name=" + elementName);
    gain = value;
}

} // namespace kelm
