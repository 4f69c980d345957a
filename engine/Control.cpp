#include "engine/Control.h"

#include <thread>

#include "engine/KELMException.h"
#include "engine/Str.h"

namespace kelm {

void Control::takeLock() {
    while (lock.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
}

void Control::setProperties(const PropertyList& props) {
    if (properties) throw KELMException("Control: Properties are already set.");
    takeLock();
    properties = props ? props : std::make_shared<std::vector<PropertyPtr>>();
    scalarTransforms.assign(properties->size(), [](scalar v) { return v; });
    vectorTransforms.assign(properties->size(),
                            [](scalar v) { return std::make_shared<ScalarVector>(1, v); });
    changed.store(true, std::memory_order_release);
    unlock();
}

void Control::storeProperty(size_t i, scalar v) {
    Property& p = *(*properties)[i];
    if (p.type == 0)
        p.value = scalarTransforms[i](v);
    else if (p.type == 1)
        p.vectorValue = vectorTransforms[i](v);
    else {
        unlock();
        throw KELMException(str("Control: Unknown property type: ", p.type));
    }
}

void Control::setValue(scalar v) {
    takeLock();
    value.store(v, std::memory_order_relaxed);
    if (properties)
        for (size_t i = 0; i < properties->size(); ++i) storeProperty(i, v);
    changed.store(true, std::memory_order_release);
    unlock();
}

void Control::setTransform(const PropertyPtr& property, const ScalarTransform& transform) {
    if (!properties) throw KELMException("Control: Properties are not set.");
    takeLock();
    for (size_t i = 0; i < properties->size(); ++i) {
        if ((*properties)[i] == property) {
            scalarTransforms[i] = transform;
            storeProperty(i, value.load(std::memory_order_relaxed));
        }
    }
    changed.store(true, std::memory_order_release);
    unlock();
}

} // namespace kelm
