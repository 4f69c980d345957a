#pragma once
#include <string>

#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

// Attached to a Filter: recomputes that filter's coefficients from
// higher-level properties, optionally for every sample.
class PropertiesHandler {
public:
    virtual ~PropertiesHandler() {}
    virtual void propertiesChanged(const PropertyMapPtr& properties) = 0;
    virtual void propertyChanged(const std::string& name, scalar value) = 0;
    virtual void sampleRateChanged(scalar rate) = 0;
    virtual bool isPerSample() = 0;
    virtual void updateForIteration(scalar x, scalar y, int iteration) = 0;
    virtual void updateForSample(scalar x, scalar y) = 0;
};

} // namespace kelm
