#pragma once
#include <memory>
#include <string>

#include "engine/Types.h"

namespace kelm {

class Driver;
class Element;
class Graph;

// Abstract registry of the elements of one graph, with its sample rate in hertz.
// The back references to the driver and to the owning graph do not own them:
// both own this context, directly or indirectly.
class Context {
public:
    virtual ~Context() {}
    virtual scalar getSampleRate() const { return sampleRate; }
    virtual void setSampleRate(scalar rate) { sampleRate = rate; }
    virtual Element* getElement(const std::string& name) = 0;
    // Takes ownership of the element, also when it throws.
    virtual void addElement(Element* element) = 0;
    virtual Driver* driver() const { return driverPtr; }
    virtual void setDriver(Driver* d) { driverPtr = d; }
    virtual Graph* graph() const { return graphPtr; }
    virtual void setGraph(Graph* g) { graphPtr = g; }

protected:
    scalar sampleRate = -1.0f;
    Driver* driverPtr = nullptr;
    Graph* graphPtr = nullptr;
};

} // namespace kelm
