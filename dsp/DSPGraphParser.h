#pragma once
#include <memory>
#include <string>

#include "engine/Graph.h"

namespace pugi {
class xml_node;
}

namespace kelm {

// Builds a DSPGraph with its elements and wiring from one Graph node.
class DSPGraphParser {
public:
    GraphPtr parse(const pugi::xml_node& graphNode, const std::string& name);
};

} // namespace kelm
