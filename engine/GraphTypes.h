#pragma once
#include <functional>
#include <string>

#include "engine/Graph.h"
#include "engine/TypeRegistry.h"

namespace pugi {
class xml_node;
}

namespace kelm {

// Builds a graph from its Graph node of a system description, with the graph's name.
typedef std::function<GraphPtr(const pugi::xml_node& graphNode, const std::string& name)> GraphReader;

// The graph types ("DSP", "MNA", ...) that the system parser knows, by the Type attribute.
TypeRegistry<GraphReader>& graphTypes();

} // namespace kelm
