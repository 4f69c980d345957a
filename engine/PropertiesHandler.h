#pragma once
#include <string>

#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

class Filter;

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
    // Runs the per-sample loop of `filter` (its target) over a block itself, with
    // the same result as updateForSample(in[i], last output) and one step of the
    // filter for each sample, when it has a faster way; false leaves the loop
    // to the filter.
    virtual bool runPerSample(Filter& filter, const scalar* in, scalar* out, size_t n) {
        (void)filter, (void)in, (void)out, (void)n;
        return false;
    }
    // The same for this handler with its filter and `twin` with its own (a handler of the
    // same kind on the twin of the filter) over blocks of equal length, in one loop; false
    // leaves both loops to the filters.
    virtual bool runPerSampleTwin(Filter& filter, const scalar* in, scalar* out, PropertiesHandler& twin,
                                  Filter& twinFilter, const scalar* twinIn, scalar* twinOut, size_t n) {
        (void)filter, (void)in, (void)out, (void)twin, (void)twinFilter, (void)twinIn, (void)twinOut, (void)n;
        return false;
    }
};

} // namespace kelm
