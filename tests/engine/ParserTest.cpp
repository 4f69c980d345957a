// Every message of the system-level and DSP graph parsers, raised by a crafted document.
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const std::string kGain =
    "<Element Type=\"Gain\" Name=\"g\"><Properties Gain=\"1\"/><Inputs><Input Port=\"in\" Element=\"Graph\" "
    "Output=\"0\"/></Inputs></Element>";
const std::string kOut = "<Output><Node Name=\"out\" Element=\"g\" Port=\"out\"/></Output>";
const std::string kIns = "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>";

std::string graph(const std::string& attrs, const std::string& body) {
    return "<Graph " + attrs + ">" + body + "</Graph>";
}

std::string ok(const std::string& name = "A") { return graph("Name=\"" + name + "\" Type=\"DSP\"", kIns + kGain + kOut); }

std::string parseError(const std::string& doc) {
    return messageOf([&] {
        Driver d;
        d.init(doc);
    });
}

} // namespace

TEST(EngineParser, SystemLevelMessages) {
    const std::string out = "<Output Graph=\"A\" Node=\"out\"/>";
    struct Case {
        std::string doc;
        std::string message;
    } cases[] = {
        {"<System><Graphs/></System>", "No graphs to parse."},
        {systemDoc(graph("Type=\"DSP\"", kIns + kGain + kOut), ""), "Graph name is not specified"},
        {systemDoc(graph("Name=\"System\" Type=\"DSP\"", kIns + kGain + kOut), ""), "\"System\" is a reserved graph name."},
        {systemDoc(graph("Name=\"A\"", kIns + kGain + kOut), ""), "Graph type is not specified"},
        {systemDoc(graph("Name=\"A\" Type=\"XYZ\"", ""), ""), "Graph type XYZ is not a valid type. Graph: A"},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\" Multiplier=\"-2\"", kIns + kGain + kOut), ""),
         "Invalid Graph Multiplier. Graph: A Multiplier: -2"},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\"", "<Inputs><Input Node=\"0\"/></Inputs>" + kGain + kOut), ""),
         "Input without a graph name."},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\"", "<Inputs><Input Graph=\"Q\" Node=\"0\"/></Inputs>" + kGain + kOut), ""),
         "Invalid input graph: Q"},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\"", "<Inputs><Input Graph=\"System\"/></Inputs>" + kGain + kOut), ""),
         "Input without a Node name."},
        {systemDoc(ok() + graph("Name=\"B\" Type=\"DSP\"", "<Inputs><Input Graph=\"A\" Node=\"x\"/></Inputs>" + kGain + kOut), ""),
         "Cannot find output node x"},
        {systemDoc(ok(), "<Output Node=\"out\"/>"), "Output without a Graph name."},
        {systemDoc(ok(), "<Output Graph=\"Q\" Node=\"out\"/>"), "Invalid system output graph name Q"},
        {systemDoc(ok(), "<Output Graph=\"A\"/>"), "Output without a Node name."},
        {systemDoc(ok(), "<Output Graph=\"A\" Node=\"zz\"/>"), "Cannot find output node zz for graph A"},
        {systemDoc(ok(), out, "<Control DisplayName=\"c\" Value=\"0\"><Properties/></Control>"), "Control without a name."},
        {systemDoc(ok(), out, "<Control Name=\"c\" Value=\"0\"><Properties/></Control>"),
         "Control without a display name. Control name: c"},
        {systemDoc(ok(), out, "<Control Name=\"c\" DisplayName=\"c\"><Properties/></Control>"),
         "Control without a Value. Control name: c"},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\"", "<Inputs><Input Graph=\"System\" Node=\"2147483647\"/></Inputs>" + kGain + kOut), out),
         "Invalid system input number 2147483647"},
        {systemDoc(ok(), "<Output Graph=\"System\" Node=\"-1\"/>"), "Invalid system input number -1"},
        {systemDoc(ok(), out, "<Control Name=\"c\" DisplayName=\"c\" Value=\"0\"/>"),
         "Control without properties. Control name: c"},
        {systemDoc(ok(), out, "<Control Name=\"c\" DisplayName=\"c\" Value=\"0\"><Properties><Property Graph=\"A\"/></Properties></Control>"),
         "Property without a name."},
        {systemDoc(ok(), out, "<Control Name=\"c\" DisplayName=\"c\" Value=\"0\"><Properties><Property Name=\"Off\"/></Properties></Control>"),
         "Property without a graph. Property name: Off"},
        {systemDoc(ok(), out, "<Control Name=\"c\" DisplayName=\"c\" Value=\"0\"><Properties><Property Name=\"Off\" Graph=\"A\" Type=\"Matrix\"/></Properties></Control>"),
         "Unknown property type Matrix"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.message, parseError(c.doc)) << c.doc;
}

TEST(EngineParser, DSPGraphMessages) {
    auto doc = [](const std::string& body) { return systemDoc(graph("Name=\"A\" Type=\"DSP\"", kIns + body), ""); };
    const std::string gainNoInputs = "<Element Type=\"Gain\" Name=\"g\"><Properties Gain=\"1\"/>";
    struct Case {
        std::string doc;
        std::string message;
    } cases[] = {
        {doc(""), "No elements in graph A"},
        {doc("<Element Type=\"Gain\"><Properties Gain=\"1\"/></Element>"), "Element name is not specified. Graph: A"},
        {doc("<Element Type=\"Bogus\" Name=\"b\"/>"), "Unknown element type: Bogus"},
        {doc("<Element Name=\"b\"/>"), "Unknown element type: "},
        {doc(gainNoInputs + "<Inputs><Input Element=\"Graph\" Output=\"0\"/></Inputs></Element>"), "Input without a Port name."},
        {doc(gainNoInputs + "<Inputs><Input Port=\"in\" Output=\"0\"/></Inputs></Element>"), "Input without an Element name."},
        {doc(gainNoInputs + "<Inputs><Input Port=\"in\" Element=\"Graph\"/></Inputs></Element>"), "Input without an Output port."},
        {doc(gainNoInputs + "<Inputs><Input Port=\"in\" Element=\"nobody\" Output=\"out\"/></Inputs></Element>"),
         "Cannot find input filter with name nobody"},
        {doc(gainNoInputs + "<Inputs><Input Port=\"input\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"),
         "Invalid input port name: input. Expected \"in\"."},
        {doc(kGain + "<Output><Node Element=\"g\" Port=\"out\"/></Output>"), "Output Node without a name."},
        {doc(kGain + "<Output><Node Name=\"o\" Port=\"out\"/></Output>"), "Output Node without an Element attribute."},
        {doc(kGain + "<Output><Node Name=\"o\" Element=\"h\" Port=\"out\"/></Output>"), "Cannot find output filter with name h"},
        {doc(kGain + "<Output><Node Name=\"o\" Element=\"g\"/></Output>"), "Output Node without a Port or an Index attribute."},
        {doc(kGain + "<Output><Node Name=\"o\" Element=\"g\" Port=\"output\"/></Output>"),
         "Invalid output port name: output. Expected \"out\"."},
        {doc(kGain + kGain + kOut), "DSPContext: Duplicate element name: g"},
        {doc("<Element Type=\"Mixer\" Name=\"m\"><Properties Faders=\"0.5|0.5\"/><Inputs><Input Port=\"in_1\" "
             "Element=\"Graph\" Output=\"0\"/></Inputs></Element>"),
         "Invalid input port name: in_1. Expected \"in\"."},
        {systemDoc(graph("Name=\"A\" Type=\"DSP\"", "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" + kGain + kOut),
                   ""),
         "Invalid number of outputs for DSPGraph A, number of outputs: 1"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.message, parseError(c.doc)) << c.doc;
}

TEST(EngineParser, MalformedXmlNamesTheProblemAndItsOffset) {
    std::string message = parseError("<System><Graphs><Graph Name=\"A\"></Graphs></System>");
    EXPECT_NE(std::string::npos, message.find("XML error in system description")) << message;
    EXPECT_NE(std::string::npos, message.find("at offset")) << message;
}

TEST(EngineParser, ForwardReferencesCommentsPortPrecedenceAndSystemInputs) {
    // Output refers to a graph defined later; comments are ignored; Port wins over Index;
    // an Input of Graph="System" Node="1" reads system input 1.
    std::string doc = "<System><!-- a comment --><Outputs><Output Graph=\"B\" Node=\"o\"/></Outputs><Graphs>"
                      "<Graph Name=\"B\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
                      "<Inputs><Input Graph=\"System\" Node=\"1\"/></Inputs>" +
                      kGain + "<!-- another -->" +
                      "<Output><Node Name=\"o\" Element=\"g\" Port=\"out\" Index=\"5\"/></Output></Graph>"
                      "</Graphs></System>";
    auto d = makeDriver(doc);
    std::vector<float> a = {1}, b = {9};
    d->process({a.data(), b.data()}, 1);
    EXPECT_FLOAT_EQ(9, d->getResults()[0][0]);
    EXPECT_EQ(2, d->getNumberOfInputs());
}
