#include "engine/NewParser.h"

#include <cstdlib>
#include <unordered_map>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>
#include <pugixml.hpp>

#include "engine/GraphTypes.h"
#include "engine/Str.h"
#include "engine/XmlUtil.h"

namespace kelm {

NewParser::NewParser()
    : graphs(std::make_shared<std::vector<GraphPtr>>()),
      inputGraphs(std::make_shared<IndexTable>()),
      inputNodes(std::make_shared<IndexTable>()),
      outputGraphs(std::make_shared<std::vector<int>>()),
      outputNodes(std::make_shared<std::vector<int>>()),
      controls(std::make_shared<std::vector<ControlPtr>>()) {}

namespace {
// System inputs and outputs that pass a system input through are numbered below this.
constexpr int kMaxSystemChannels = 1024;

// Names of a graph's outputs, in order, as other graphs refer to them.
std::vector<std::string> outputNamesOf(const pugi::xml_node& graphNode) {
    std::vector<std::string> names;
    for (const pugi::xpath_node& n : graphNode.select_nodes("./Output/Node"))
        names.push_back(n.node().attribute("Name").value());
    return names;
}
} // namespace

void NewParser::parse(const std::string& document) {
    boost::iostreams::stream<boost::iostreams::array_source> in(document.data(), document.size());
    pugi::xml_document doc;
    pugi::xml_parse_result parsed = doc.load(in);
    if (!parsed)
        throw KELMException(str("XML error in system description: ", parsed.description(), " at offset ",
                                parsed.offset));

    pugi::xpath_node_set graphNodes = doc.select_nodes("/System/Graphs/Graph");
    if (graphNodes.empty()) throw KELMException("No graphs to parse.");
    graphs->reserve(graphNodes.size());
    inputGraphs->reserve(graphNodes.size());
    inputNodes->reserve(graphNodes.size());

    std::unordered_map<std::string, int> numbers;
    std::vector<std::vector<std::string>> outputNames;
    for (const pugi::xpath_node& xn : graphNodes) {
        pugi::xml_node node = xn.node();
        pugi::xml_attribute typeAttr = node.attribute("Type");
        pugi::xml_attribute nameAttr = node.attribute("Name");
        if (!hasText(nameAttr)) throw KELMException("Graph name is not specified");
        std::string name = nameAttr.value();
        if (name == "System") throw KELMException("\"System\" is a reserved graph name.");
        if (!hasText(typeAttr)) throw KELMException("Graph type is not specified");
        std::string type = typeAttr.value();
        if (numbers.count(name)) throw KELMException("Duplicate graph name: " + name);
        GraphReader reader;
        if (!graphTypes().find(type, reader))
            throw KELMException("Graph type " + type + " is not a valid type. Graph: " + name);
        GraphPtr graph = reader(node, name);
        graphs->push_back(graph);
        pugi::xml_attribute multAttr = node.attribute("Multiplier");
        if (multAttr) {
            double m = std::strtod(multAttr.value(), nullptr);
            if (!(m > 0))
                throw KELMException("Invalid Graph Multiplier. Graph: " + name + " Multiplier: " + multAttr.value());
            graph->setMultiplier(m);
        }
        numbers[name] = static_cast<int>(graphs->size()) - 1;
        outputNames.push_back(outputNamesOf(node));
        graph->setOutputLabels(outputNames.back());
    }
    numbers["System"] = -1;

    auto resolve = [&](const pugi::xml_node& node, bool isInput, int& graphIndex, int& nodeIndex) {
        pugi::xml_attribute g = node.attribute("Graph");
        if (!g) throw KELMException(isInput ? "Input without a graph name." : "Output without a Graph name.");
        std::string graphName = g.value();
        auto it = numbers.find(graphName);
        if (it == numbers.end())
            throw KELMException(isInput ? "Invalid input graph: " + graphName
                                        : "Invalid system output graph name " + graphName);
        pugi::xml_attribute n = node.attribute("Node");
        if (!n) throw KELMException(isInput ? "Input without a Node name." : "Output without a Node name.");
        std::string nodeName = n.value();
        graphIndex = it->second;
        if (graphIndex == -1) {
            nodeIndex = Conversions::toInt(nodeName);
            // A system channel beyond any host's or file's count would only size buffers for
            // billions of channels.
            if (nodeIndex < 0 || nodeIndex >= kMaxSystemChannels)
                throw KELMException("Invalid system input number " + nodeName);
            return;
        }
        const auto& names = outputNames[graphIndex];
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == nodeName) {
                nodeIndex = static_cast<int>(i);
                return;
            }
        throw KELMException(isInput ? "Cannot find output node " + nodeName
                                    : "Cannot find output node " + nodeName + " for graph " + graphName);
    };

    for (const pugi::xpath_node& xn : graphNodes) {
        std::vector<int> sources;
        std::vector<int> nodes;
        for (const pugi::xpath_node& input : xn.node().select_nodes("./Inputs/Input")) {
            int g = 0, n = 0;
            resolve(input.node(), true, g, n);
            sources.push_back(g);
            nodes.push_back(n);
        }
        inputGraphs->push_back(sources);
        inputNodes->push_back(nodes);
    }

    for (const pugi::xpath_node& output : doc.select_nodes("/System/Outputs/Output")) {
        int g = 0, n = 0;
        resolve(output.node(), false, g, n);
        outputGraphs->push_back(g);
        outputNodes->push_back(n);
    }

    pugi::xpath_node controlsNode = doc.select_node("/System/Controls");
    if (controlsNode) readControls(controlsNode.node());
}

void NewParser::readControls(const pugi::xml_node& controlsNode) {
    for (const pugi::xpath_node& xn : controlsNode.select_nodes("./Control")) {
        pugi::xml_node node = xn.node();
        auto control = std::make_shared<Control>();
        if (!node.attribute("Name")) throw KELMException("Control without a name.");
        control->name = node.attribute("Name").value();
        if (!node.attribute("DisplayName"))
            throw KELMException("Control without a display name. Control name: " + control->name);
        control->displayName = node.attribute("DisplayName").value();
        if (!node.attribute("Value")) throw KELMException("Control without a Value. Control name: " + control->name);
        scalar value = static_cast<scalar>(std::strtod(node.attribute("Value").value(), nullptr));

        pugi::xml_node ui = node.child("UIProperties");
        if (ui) {
            control->image = ui.attribute("Image").value();
            control->controlType = ui.attribute("ControlType").value();
            control->x = ui.attribute("X").as_double();
            control->y = ui.attribute("Y").as_double();
            control->width = ui.attribute("Width").as_double();
            control->height = ui.attribute("Height").as_double();
            if (ui.attribute("NumberOfImages")) control->numberOfImages = ui.attribute("NumberOfImages").as_int();
            if (ui.attribute("HeightOfOneImage"))
                control->heightOfOneImage = ui.attribute("HeightOfOneImage").as_double();
        }

        pugi::xml_node propsNode = node.child("Properties");
        if (!propsNode) throw KELMException("Control without properties. Control name: " + control->name);
        auto list = std::make_shared<std::vector<PropertyPtr>>();
        for (pugi::xml_node p : propsNode.children("Property")) {
            auto property = std::make_shared<Property>();
            if (!p.attribute("Name")) throw KELMException("Property without a name.");
            property->name = p.attribute("Name").value();
            if (!p.attribute("Graph")) throw KELMException("Property without a graph. Property name: " + property->name);
            property->graphName = p.attribute("Graph").value();
            property->elementName = p.attribute("Element").value();
            if (p.attribute("Type")) {
                std::string type = p.attribute("Type").value();
                if (type == "Scalar")
                    property->type = 0;
                else if (type == "Vector")
                    property->type = 1;
                else
                    throw KELMException("Unknown property type " + type);
            }
            list->push_back(property);
        }
        control->setProperties(list);
        control->setValue(value);
        controls->push_back(control);
    }
}

} // namespace kelm
