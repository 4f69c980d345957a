#pragma once
#include <memory>
#include <string>

#include "engine/Types.h"

namespace kelm {

class Element;
class Graph;

// Binds one control to one target property of an element or a graph.
struct Property {
    std::string name;
    int type = 0;  // 0 scalar, 1 vector
    scalar value = 0;
    ScalarVectorPtr vectorValue;
    std::string graphName;
    std::string elementName;
    Element* element = nullptr;  // resolved by the Driver; null when the target is the graph
    std::shared_ptr<Graph> graph;
};

typedef std::shared_ptr<Property> PropertyPtr;

} // namespace kelm
