#include "circuit/Potentiometer.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void Potentiometer::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                         const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 3)
        throw InvalidArgumentException("Potentiometer must have three nodes. Potentiometer name=" + name);
    read(*properties);
}

void Potentiometer::read(const PropertyMap& p) {
    scalar r = 0;
    p.readRequired("Resistance", r, KELMException("Resistance is not defined. Potentiometer name=" + elementName));
    if (!(r > 0))
        throw InvalidArgumentException(
            str("Resistance cannot be negative or zero. Potentiometer name=", elementName, ", value=", r));
    resistance = r;
    scalar w = 0;
    p.readRequired("Wiper", w, KELMException("Wiper is not defined. Potentiometer name=" + elementName));
    setWiper(w);
}

void Potentiometer::setWiper(scalar w) {
    wiper = w;
    if (!(w >= 0 && w <= 1))
        throw InvalidArgumentException(
            str("Wiper value must be between 0 and 1. Potentiometer name=", elementName, ", value=", w));
    if (w < 0.001f) w = 0.001f;
    if (w > 0.999f) w = 0.999f;
    wiper = w;
    admittanceA = 1.0f / (w * resistance);
    admittanceB = 1.0f / ((1.0f - w) * resistance);
}

scalar** Potentiometer::getG() {
    const scalar ga = admittanceA, gb = admittanceB;
    stamp(0, 0) = ga;
    stamp(0, 1) = -ga;
    stamp(0, 2) = 0;
    stamp(1, 0) = -ga;
    stamp(1, 1) = ga + gb;
    stamp(1, 2) = -gb;
    stamp(2, 0) = 0;
    stamp(2, 1) = -gb;
    stamp(2, 2) = gb;
    return stamp.rows();
}

void Potentiometer::propertiesChanged(const PropertyMapPtr& properties) {
    read(*properties);
    context->setMatrixChanged(true);
}

void Potentiometer::propertyChanged(const std::string& name, scalar value) {
    if (name != "Wiper")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". Potentiometer name=" +
                                       elementName);
    setWiper(value);
    context->setMatrixChanged(true);
}

} // namespace kelm
