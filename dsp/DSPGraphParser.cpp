#include "dsp/DSPGraphParser.h"

#include <memory>
#include <unordered_map>

#include <pugixml.hpp>

#include "dsp/Filter.h"
#include "dsp/DSPContext.h"
#include "dsp/DspTypes.h"
#include "dsp/DSPGraph.h"
#include "engine/Str.h"
#include "engine/XmlUtil.h"

namespace kelm {

GraphPtr DSPGraphParser::parse(const pugi::xml_node& graphNode, const std::string& name) {
    auto graph = std::make_shared<DSPGraph>();
    auto context = std::make_shared<DSPContext>();
    graph->setContext(context);
    context->setGraph(graph.get());
    graph->setType(GraphType::DSP);
    graph->setName(name);

    pugi::xml_node props = graphNode.child("Properties");
    if (props) graph->setProperties(propertiesOf(props));

    pugi::xpath_node_set elementNodes = graphNode.select_nodes("./Element");
    if (elementNodes.empty()) throw KELMException("No elements in graph " + name);

    std::unordered_map<std::string, int> numbers;
    for (const pugi::xpath_node& xn : elementNodes) {
        pugi::xml_node node = xn.node();
        std::string type = node.attribute("Type").value();
        FilterMaker maker;
        if (!filterTypes().find(type, maker)) throw KELMException("Unknown element type: " + type);
        std::unique_ptr<Filter> element(maker());
        pugi::xml_attribute nameAttr = node.attribute("Name");
        if (!hasText(nameAttr)) throw KELMException("Element name is not specified. Graph: " + name);
        std::string elementName = nameAttr.value();
        element->init(elementName, propertiesOf(node.child("Properties")), context);
        context->addElement(element.release());
        numbers.emplace(elementName, static_cast<int>(context->elements.size()) - 1);
    }

    auto inputElements = std::make_shared<DSPGraph::IndexTable>();
    auto inputOutputs = std::make_shared<DSPGraph::IndexTable>();
    size_t e = 0;
    for (const pugi::xpath_node& xn : elementNodes) {
        Filter* element = context->elements[e];
        int ports = element->getMeta()->numberOfInputs();
        inputElements->push_back(std::vector<int>(ports > 0 ? ports : 0, -1));
        inputOutputs->push_back(std::vector<int>(ports > 0 ? ports : 0, -1));
        for (const pugi::xpath_node& in : xn.node().select_nodes("./Inputs/Input")) {
            pugi::xml_node inNode = in.node();
            if (!inNode.attribute("Port")) throw KELMException("Input without a Port name.");
            if (!inNode.attribute("Element")) throw KELMException("Input without an Element name.");
            if (!inNode.attribute("Output")) throw KELMException("Input without an Output port.");
            int port = element->getMeta()->inputIndex(inNode.attribute("Port").value());
            std::string source = inNode.attribute("Element").value();
            std::string output = inNode.attribute("Output").value();
            int sourceIndex;
            int outputIndex;
            if (source == "Graph") {
                sourceIndex = -1;
                outputIndex = Conversions::toInt(output);
            } else {
                auto it = numbers.find(source);
                if (it == numbers.end()) throw KELMException("Cannot find input filter with name " + source);
                sourceIndex = it->second;
                outputIndex = context->elements[sourceIndex]->getMeta()->outputIndex(output);
            }
            if (port >= static_cast<int>(inputElements->back().size())) {
                inputElements->back().resize(port + 1, -1);
                inputOutputs->back().resize(port + 1, -1);
            }
            inputElements->back()[port] = sourceIndex;
            inputOutputs->back()[port] = outputIndex;
        }
        ++e;
    }
    graph->setInputs(inputElements, inputOutputs);

    auto outputElements = std::make_shared<std::vector<int>>();
    auto outputIndices = std::make_shared<std::vector<int>>();
    for (const pugi::xpath_node& xn : graphNode.select_nodes("./Output/Node")) {
        pugi::xml_node node = xn.node();
        if (!node.attribute("Name")) throw KELMException("Output Node without a name.");
        if (!node.attribute("Element")) throw KELMException("Output Node without an Element attribute.");
        std::string source = node.attribute("Element").value();
        auto it = numbers.find(source);
        if (it == numbers.end()) throw KELMException("Cannot find output filter with name " + source);
        int index;
        if (node.attribute("Port"))
            index = context->elements[it->second]->getMeta()->outputIndex(node.attribute("Port").value());
        else if (node.attribute("Index"))
            index = Conversions::toInt(node.attribute("Index").value());
        else
            throw KELMException("Output Node without a Port or an Index attribute.");
        const int outputs = context->elements[it->second]->getMeta()->numberOfOutputs();
        if (index < 0 || index >= outputs)
            throw KELMException(str("Output Node index ", index, " out of range: element ", source, " has ", outputs,
                                    " output(s). Graph: ", name));
        outputElements->push_back(it->second);
        outputIndices->push_back(index);
    }
    graph->setOutputs(outputElements, outputIndices);

    std::string inputsText = graphNode.child("NumberOfInputs").text().get();
    graph->setNumberOfInputs(inputsText.empty() ? 0 : Conversions::toInt(inputsText));
    return graph;
}

} // namespace kelm
