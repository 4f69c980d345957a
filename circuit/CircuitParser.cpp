#include "circuit/CircuitParser.h"

#include <pugixml.hpp>

#include "circuit/Circuit.h"
#include "circuit/Component.h"
#include "circuit/MNAContext.h"
#include "circuit/CircuitTypes.h"
#include "engine/XmlUtil.h"

namespace kelm {

namespace {
SolverPtr readSolver(const pugi::xml_node& solverNode, const char* missing, const char* missingType) {
    if (!solverNode) throw KELMException(missing);
    pugi::xml_attribute typeAttr = solverNode.attribute("Type");
    if (!typeAttr) throw KELMException(missingType);
    std::string type = typeAttr.value();
    SolverMaker maker;
    if (!solverTypes().find(type, maker)) throw KELMException("Unknown solver type: " + type);
    SolverPtr solver = maker();
    pugi::xml_node props = solverNode.child("Properties");
    if (!props && type != "Linear") throw KELMException("InitilaCondition Solver's properties are not defined.");
    solver->setProperties(propertiesOf(props));
    return solver;
}
} // namespace

void CircuitParser::parse(GraphPtr& result, const pugi::xml_node& graphNode, const std::string& name) {
    auto circuit = std::make_shared<Circuit>();
    result = circuit;
    auto context = std::make_shared<MNAContext>();
    context->setGraph(circuit.get());
    circuit->setContext(context);
    circuit->setType(GraphType::MNA);
    circuit->setName(name);

    pugi::xml_node props = graphNode.child("Properties");
    if (props) circuit->setProperties(propertiesOf(props));

    pugi::xpath_node_set elements = graphNode.select_nodes("./Element");
    if (elements.empty()) throw KELMException("No elements in graph " + name);
    for (const pugi::xpath_node& xn : elements) {
        pugi::xml_node node = xn.node();
        std::string type = node.attribute("Type").value();
        ComponentMaker maker;
        if (!componentTypes().find(type, maker)) throw KELMException("Unknown element type: " + type);
        std::unique_ptr<Component> component(maker());
        pugi::xml_attribute nameAttr = node.attribute("Name");
        if (!hasText(nameAttr)) throw KELMException("Element name is not specified in graph " + name);
        std::string elementName = nameAttr.value();
        PropertyMapPtr properties = propertiesOf(node.child("Properties"));
        auto nodeNames = std::make_shared<std::vector<std::string>>();
        for (pugi::xml_node n : node.children("Node")) {
            if (!hasText(n.attribute("Name")))
                throw KELMException("Element: " + elementName + ". Node without a name.");
            nodeNames->push_back(n.attribute("Name").value());
        }
        if (nodeNames->empty()) throw KELMException("Element: " + elementName + ". No Nodes specified.");
        component->init(elementName, properties, nodeNames, context);
        context->addElement(component.release());
    }

    pugi::xpath_node_set outputs = graphNode.select_nodes("./Output/Node");
    if (!outputs.empty()) {
        auto names = std::make_shared<std::vector<std::string>>();
        for (const pugi::xpath_node& xn : outputs) {
            pugi::xml_attribute a = xn.node().attribute("Name");
            if (!hasText(a)) throw KELMException("Output Node without a name.");
            names->push_back(a.value());
        }
        circuit->setOutputNames(names);
    }

    pugi::xml_node inputsNode = graphNode.child("NumberOfInputs");
    if (inputsNode) circuit->setNumberOfInputs(Conversions::toInt(inputsNode.text().get()));

    pugi::xml_node analysisNode = graphNode.child("Analysis");
    if (!analysisNode) throw KELMException("Analysis node is missing in the graph " + name);
    pugi::xml_attribute typeAttr = analysisNode.attribute("Type");
    if (!typeAttr) throw KELMException("Analysis Type attribute is missing in the graph " + name);
    std::string analysisType = typeAttr.value();
    std::unique_ptr<Analysis> analysis(new Analysis());
    if (analysisType == "DC") {
        analysis->type = AnalysisType::DC;
    } else if (analysisType == "AC") {
        analysis->type = AnalysisType::AC;
        pugi::xml_node ic = analysisNode.child("InitialCondition");
        if (!ic) throw KELMException("InitialCondition node is missing in the graph " + name);
        pugi::xml_attribute icType = ic.attribute("Type");
        if (!icType) throw KELMException("InitialCondition Type attribute is missing in the graph " + name);
        std::string start = icType.value();
        if (start == "Zero")
            analysis->initialCondition = InitialCondition::Zero;
        else if (start == "User")
            analysis->initialCondition = InitialCondition::User;
        else if (start == "OperatingPoint") {
            analysis->initialCondition = InitialCondition::OperatingPoint;
            analysis->initialConditionSolver = readSolver(ic.child("Solver"), "InitialCondition Solver is not defined.",
                                                          "InitialCondition Solver type is not defined.");
        } else
            throw KELMException("Invalid InitialCondition Type attribute " + start + " in the graph " + name);
    } else {
        throw KELMException("Invalid analysis Type attribute " + analysisType + " in the graph " + name);
    }
    analysis->solver =
        readSolver(analysisNode.child("Solver"), "Analysis Solver is not defined.", "Analysis Solver type is not defined.");
    circuit->setAnalysis(analysis.release());
}

} // namespace kelm
