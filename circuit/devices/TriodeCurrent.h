#pragma once
#include <memory>

#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

// A current of a triode as a function of Vgk and Vpk (volts), in amperes.
class TriodeCurrent {
public:
    virtual ~TriodeCurrent() {}
    virtual void init(const PropertyMap& properties) = 0;
    virtual void setProperty() = 0;
    virtual scalar current(scalar vgk, scalar vpk) = 0;
    // Index 0: derivative by Vgk; index 1: by Vpk.
    virtual const ScalarVectorPtr& derivatives(scalar vgk, scalar vpk) = 0;
    virtual bool dependsOnVgk() const = 0;
    virtual bool dependsOnVpk() const = 0;
    virtual scalar dIdVgk(scalar vgk, scalar vpk) = 0;
    virtual scalar dIdVpk(scalar vgk, scalar vpk) = 0;
};

} // namespace kelm
