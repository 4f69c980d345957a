#include "circuit/devices/Inductor.h"

#include <cmath>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void Inductor::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                    const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2)
        throw InvalidArgumentException(str("Inductor must have two nodes, not ", nodeCount(), ". Inductor name=", name));
    double l = 0;
    properties->readRequired("Inductance", l, KELMException("Inductance is not defined. Inductor name=" + name));
    setInductance(l);
    listen();
}

void Inductor::setInductance(double l) {
    if (!(l >= 0) || !std::isfinite(l))
        throw InvalidArgumentException(str("Inductance cannot be negative. Inductor name=", elementName, ", value=", l));
    setInductances(1, l);
}

void Inductor::propertiesChanged(const PropertyMapPtr& properties) {
    double l;
    if (properties->readOptional("Inductance", l)) setInductance(l);
}

void Inductor::propertyChanged(const std::string& name, scalar value) {
    if (name != "Inductance")
        throw InvalidArgumentException("propertyChanged: Invalid property: " + name + ". Inductor name=" + elementName);
    setInductance(value);
}

} // namespace kelm
