#include "circuit/devices/OpAmp.h"

#include "engine/InvalidArgumentException.h"

namespace kelm {

OpAmp::OpAmp() : bStamp(3, 1), cStamp(1, 3) {
    bStamp(1, 0) = 1;
    cStamp(0, 0) = 1;
    cStamp(0, 2) = -1;
}

void OpAmp::init(const std::string& name, const PropertyMapPtr&, const NodeNames& names,
                 const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 3) throw InvalidArgumentException("OpAmp must have three nodes");
    if (isGround((*nodeNames)[1]))
        throw InvalidArgumentException("OpAmp cannot have a grounded output node. OpAmp name=" + name);
}

} // namespace kelm
