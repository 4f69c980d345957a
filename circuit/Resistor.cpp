#include "circuit/Resistor.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void Resistor::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                    const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2) throw InvalidArgumentException("Resistor must have two nodes. Resistor name=" + name);
    readResistance(*properties);
}

void Resistor::readResistance(const PropertyMap& properties) {
    scalar r = 0;
    properties.readRequired("Resistance", r, KELMException("Resistance is not defined. Resistor name=" + elementName));
    if (std::isnan(r) || r < 0)
        throw InvalidArgumentException(
            str("Resistance cannot be negative. Resistor name=", elementName, ", value=", r));
    admittance = admittanceOf(r);
}

scalar** Resistor::getG() {
    stamp(0, 0) = admittance;
    stamp(0, 1) = -admittance;
    stamp(1, 0) = -admittance;
    stamp(1, 1) = admittance;
    return stamp.rows();
}

void Resistor::propertiesChanged(const PropertyMapPtr& properties) {
    readResistance(*properties);
    context->setMatrixChanged(true);
}

void Resistor::propertyChanged(const std::string& name, scalar value) {
    if (name != "Resistance")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". Resistor name=" +
                                       elementName);
    if (std::isnan(value) || value < 0)
        throw InvalidArgumentException(
            str("propertyChanged: Resistance cannot be negative. Resistor name=", elementName, ", value=", value));
    admittance = admittanceOf(value);
    context->setMatrixChanged(true);
}

} // namespace kelm
