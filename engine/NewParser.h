#pragma once
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Control.h"
#include "engine/Graph.h"

namespace pugi {
class xml_node;
}

namespace kelm {

// Reads the system level of a system description: graphs, their wiring,
// the system outputs and the controls.
class NewParser {
public:
    typedef std::vector<std::vector<int>> IndexTable;

    NewParser();
    // Parses the XML text; a malformed document raises KELMException with
    // the XML parser's description and byte offset.
    void parse(const std::string& document);

    std::shared_ptr<std::vector<GraphPtr>> graphs;
    std::shared_ptr<IndexTable> inputGraphs;
    std::shared_ptr<IndexTable> inputNodes;
    std::shared_ptr<std::vector<int>> outputGraphs;
    std::shared_ptr<std::vector<int>> outputNodes;
    std::shared_ptr<std::vector<ControlPtr>> controls;

private:
    void readControls(const pugi::xml_node& controlsNode);

};

} // namespace kelm
