#pragma once
#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

// A current of a pentode as a function of Vgk, Vpk and Vsk (volts), in amperes.
class PentodeCurrent {
public:
    virtual ~PentodeCurrent() {}
    virtual void init(const PropertyMap& properties) = 0;
    virtual void setProperty() = 0;
    virtual scalar current(scalar vgk, scalar vpk, scalar vsk) = 0;
    // By Vgk, by Vpk, by Vsk.
    virtual const ScalarVectorPtr& derivatives(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual bool dependsOnVgk() const { return true; }
    virtual bool dependsOnVpk() const { return true; }
    virtual bool dependsOnVsk() const { return true; }
    virtual scalar dIdVgk(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual scalar dIdVpk(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual scalar dIdVsk(scalar vgk, scalar vpk, scalar vsk) = 0;
};

} // namespace kelm
