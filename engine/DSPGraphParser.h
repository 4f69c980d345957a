#pragma once
#include <memory>
#include <string>

#include "engine/Graph.h"

namespace pugi {
class xml_node;
}

namespace kelm {

class PluginDSPElementFactory;

// Builds a DSPGraph with its elements and wiring from one Graph node.
class DSPGraphParser {
public:
    explicit DSPGraphParser(const std::shared_ptr<PluginDSPElementFactory>& factory) : factory(factory) {}
    virtual ~DSPGraphParser() {}
    GraphPtr parse(const pugi::xml_node& graphNode, const std::string& name);

private:
    std::shared_ptr<PluginDSPElementFactory> factory;
};

} // namespace kelm
