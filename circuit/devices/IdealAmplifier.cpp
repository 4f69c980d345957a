#include "circuit/devices/IdealAmplifier.h"

#include "engine/InvalidArgumentException.h"

namespace kelm {

void IdealAmplifier::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                          const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2) throw InvalidArgumentException("IdealAmplifier must have two nodes");
    if (isGround((*nodeNames)[0]) || isGround((*nodeNames)[1]))
        throw InvalidArgumentException("IdealAmplifier cannot have a grounded node. IdealAmplifier name=" + name);
    fixedVoltageNode = (*nodeNames)[1];
    properties->readRequired("Gain", gain,
                             InvalidArgumentException("Gain is not defined. IdealAmplifier name=" + name));
    layout = PortLayout();
    layout.addPort(0, -1);
    layout.addForced(1);
}

scalar* IdealAmplifier::getRhs(scalar* x) {
    rhs[0] = 0;
    rhs[1] = gain * x[(*nodes)[0]];
    return rhs;
}

void IdealAmplifier::propertiesChanged(const PropertyMapPtr& properties) {
    properties->readRequired("Gain", gain,
                             InvalidArgumentException("Gain is not defined. IdealAmplifier name=" + elementName));
}

void IdealAmplifier::propertyChanged(const std::string& name, scalar value) {
    if (name != "Gain")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". IdealAmplifier name=" +
                                       elementName);
    gain = value;
}

} // namespace kelm
