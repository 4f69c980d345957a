#pragma once
#include <string>

#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

// Anything that can be named in a graph and receive property changes.
class Element {
public:
    virtual ~Element() = 0;
    // Hands a whole property table to the element after init.
    virtual void propertiesChanged(const PropertyMapPtr& properties);
    // Run-time change of one scalar property, delivered on the audio thread.
    virtual void propertyChanged(const std::string& name, scalar value);
    // Run-time change of one vector property.
    virtual void propertyChanged(const std::string& name, const ScalarVectorPtr& value);
    virtual const std::string& name() const { return elementName; }
    // Whether a change of the property chooses another path or rate (a switch's position, a
    // resampler's factor) rather than moving a value along: while the system plays, the
    // Driver carries such a change out with a crossfade instead of a glide.
    virtual bool changesStructure(const std::string&) const { return false; }

protected:
    std::string elementName;
};

} // namespace kelm
