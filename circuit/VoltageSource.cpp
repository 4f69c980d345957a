#include "circuit/VoltageSource.h"

namespace kelm {

VoltageSource::VoltageSource() : bStamp(2, 1), cStamp(1, 2) {
    bStamp(0, 0) = 1;
    bStamp(1, 0) = -1;
    cStamp(0, 0) = 1;
    cStamp(0, 1) = -1;
}

void VoltageSource::setupMode(const PropertyMap& properties) {
    useFixedVoltage = false;
    for (const std::string& n : *nodeNames) {
        if (!isGround(n)) {
            fixedVoltageNode = n;
            useFixedVoltage = true;
            break;
        }
    }
    readProperties(properties);
}

void VoltageSource::fill(scalar v) {
    if (useFixedVoltage) {
        rhs[0] = v;
        rhs[1] = -v;
        rhs[2] = 0;
    } else {
        rhs[0] = 0;
        rhs[1] = 0;
        rhs[2] = v;
    }
}

} // namespace kelm
