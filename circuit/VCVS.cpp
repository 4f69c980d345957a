#include "circuit/VCVS.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void VCVS::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 4) throw InvalidArgumentException("VCVS must have four nodes. VCVS name=" + name);
    if (isGround((*nodeNames)[0]) && isGround((*nodeNames)[1]))
        throw InvalidArgumentException("VCVS cannot have both output nodes grounded. VCVS name=" + name);
    // The output current enters at out+ and leaves at out-.
    bStamp(0, 0) = 1;
    bStamp(1, 0) = -1;
    propertiesChanged(properties);
}

void VCVS::setGain(scalar g) {
    if (!std::isfinite(g)) throw InvalidArgumentException(str("VCVS: Gain must be finite. VCVS name=", elementName));
    // The branch row: V(out+) - V(out-) - Gain (V(in+) - V(in-)) = 0.
    cStamp(0, 0) = 1;
    cStamp(0, 1) = -1;
    cStamp(0, 2) = -g;
    cStamp(0, 3) = g;
}

void VCVS::propertiesChanged(const PropertyMapPtr& properties) {
    scalar g = 0;
    properties->readRequired("Gain", g, KELMException("Gain is not defined. VCVS name=" + elementName));
    setGain(g);
    context->setMatrixChanged(true);
}

void VCVS::propertyChanged(const std::string& name, scalar value) {
    if (name != "Gain")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". VCVS name=" +
                                       elementName);
    setGain(value);
    context->setMatrixChanged(true);
}

} // namespace kelm
