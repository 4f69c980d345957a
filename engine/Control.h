#pragma once
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/Property.h"
#include "engine/Types.h"

namespace kelm {

// One user-visible value from 0 to 1 bound to a list of target properties.
// setValue may run on any thread; the Driver delivers the stored results on
// the audio thread. The spin flag guards the Property records.
class Control {
public:
    typedef std::function<scalar(scalar)> ScalarTransform;
    typedef std::function<ScalarVectorPtr(scalar)> VectorTransform;
    typedef std::shared_ptr<std::vector<PropertyPtr>> PropertyList;

    Control() {}
    virtual ~Control() {}

    void setProperties(const PropertyList& props);
    void setValue(scalar v);
    scalar getValue() const { return value.load(std::memory_order_relaxed); }
    void setTransform(const PropertyPtr& property, const ScalarTransform& transform);
    const PropertyList& getProperties() const { return properties; }

    // Used by the Driver: a non-blocking attempt to take the spin flag.
    bool tryLock() { return !lock.test_and_set(std::memory_order_acquire); }
    void unlock() { lock.clear(std::memory_order_release); }
    bool isChanged() const { return changed.load(std::memory_order_acquire); }
    void clearChanged() { changed.store(false, std::memory_order_release); }

    std::string image;
    std::string controlType;
    double x = 0, y = 0, width = 0, height = 0;
    double heightOfOneImage = 0;
    int numberOfImages = -1;
    std::string name;
    std::string displayName;

private:
    void takeLock();
    void storeProperty(size_t i, scalar v);

    std::atomic<scalar> value{0.0f};
    std::atomic<bool> changed{false};
    std::atomic_flag lock = ATOMIC_FLAG_INIT;
    PropertyList properties;
    std::vector<ScalarTransform> scalarTransforms;
    std::vector<VectorTransform> vectorTransforms;
};

typedef std::shared_ptr<Control> ControlPtr;

} // namespace kelm
