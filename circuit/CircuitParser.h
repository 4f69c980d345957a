#pragma once
#include <memory>
#include <string>

#include "engine/Graph.h"

namespace pugi {
class xml_node;
}

namespace kelm {

// Turns one Graph node of Type "MNA" into a Circuit with its context,
// components, output names and analysis.
class CircuitParser {
public:
    void parse(GraphPtr& result, const pugi::xml_node& graphNode, const std::string& name);
};

} // namespace kelm
