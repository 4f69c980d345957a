// The netlist reader and importer: values and parameters as ngspice reads them (stored
// ngspice results beside the netlists), the reading of the language, the mapping onto
// the engine's elements, and the errors with their kind and place.
#include <fstream>
#include <map>

#include <pugixml.hpp>

#include "netlist/Expression.h"
#include "netlist/Flattener.h"
#include "netlist/NetlistError.h"
#include "netlist/NetlistImporter.h"
#include "netlist/NetlistReader.h"
#include "netlist/SpiceNumber.h"
#include "netlist/SystemDescription.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// ngspice's resistances of a netlist of tests/data/netlist, by our element keys.
std::map<std::string, double> ngspiceValues(const std::string& name) {
    std::map<std::string, double> values;
    std::ifstream f(sourcePath("tests/data/netlist/" + name + ".ref"));
    std::string key, value;
    while (f >> key) {
        if (key[0] == '#') {
            std::getline(f, value);
            continue;
        }
        f >> value;
        // ngspice's r.xo.r.xl.r4 is X0.XL.R4 here.
        std::string ours = key.compare(0, 2, "r.") == 0 ? key.substr(2) : key;
        for (size_t at; (at = ours.find(".r.")) != std::string::npos;) ours.replace(at, 3, ".");
        values[ours] = std::stod(value);
    }
    return values;
}

Flattener::Result flatten(const std::string& text, const std::string& file = "test.cir") {
    const Netlist n = NetlistReader().read(text, file);
    return Flattener(n).flatten();
}

std::map<std::string, double> flatValues(const std::string& path) {
    std::map<std::string, double> values;
    for (const auto& d : flatten(readText(path), path).devices) values[d.key] = d.value;
    return values;
}

NetlistImporter::Result importText(const std::string& text, NetlistImporter::Options options = {}) {
    return NetlistImporter(options).import(text, "test.cir");
}

// The error an import throws (kind and line), or a test failure where it throws none.
NetlistError importError(const std::string& text, NetlistImporter::Options options = {}) {
    try {
        importText(text, options);
    } catch (const NetlistError& e) {
        return e;
    }
    ADD_FAILURE() << "no error for:\n" << text;
    return NetlistError(NetlistError::Syntax, "", "");
}

// The element of an imported document by its name.
pugi::xml_node elementOf(const pugi::xml_document& doc, const std::string& name) {
    return doc.select_node(("//Element[@Name='" + name + "']").c_str()).node();
}

std::vector<std::string> nodesOf(const pugi::xml_node& e) {
    std::vector<std::string> nodes;
    for (pugi::xml_node n : e.children("Node")) nodes.push_back(n.attribute("Name").value());
    return nodes;
}

const char* kStage = "stage\nVin in 0 SIN(0 1 1k)\nR1 in out 1k\nR2 out 0 1k\n.print tran v(out)\n.end\n";

} // namespace

TEST(NetlistValues, NumbersAndExpressionsReadAsNgspiceReadsThem) {
    const auto spice = ngspiceValues("values");
    const auto ours = flatValues(sourcePath("tests/data/netlist/values.cir"));
    // Schematic-style values are read as the schematic means them, on purpose.
    const std::map<std::string, double> schematic = {{"r5", 2200}, {"r6", 4.7e-6}, {"r7", 1.5}, {"r27", 4.7e6}};
    ASSERT_EQ(40u, spice.size());
    for (const auto& s : spice) {
        ASSERT_TRUE(ours.count(s.first)) << s.first;
        const double expected = schematic.count(s.first) ? schematic.at(s.first) : s.second;
        EXPECT_NEAR(expected, ours.at(s.first), 1e-9 * std::fabs(expected)) << s.first;
    }
    // ... and what ngspice makes of them is known and noted.
    for (const auto& s : schematic) {
        const std::string token = s.first == "r5" ? "2k2" : s.first == "r6" ? "4u7" : s.first == "r7" ? "1R5" : "4M7";
        const SpiceNumber n = parseSpiceNumber(token);
        EXPECT_TRUE(n.ok && n.schematic) << token;
        EXPECT_NEAR(spice.at(s.first), n.ngspiceValue, 1e-9 * spice.at(s.first)) << token;
    }
    const auto notes = flatten(readText(sourcePath("tests/data/netlist/values.cir"))).notes;
    ASSERT_EQ(4u, notes.size());
    EXPECT_NE(std::string::npos, notes[0].text.find("2k2 read as 2200")) << notes[0].text;
    EXPECT_EQ(7, notes[0].place.line);
    EXPECT_TRUE(notes[0].shown);
    // Tokens that are no numbers.
    for (const char* bad : {"k", "", "1.2.3x", "-", "1e5$"}) EXPECT_FALSE(parseSpiceNumber(bad).ok) << bad;
}

TEST(NetlistValues, ParametersAndNestedSubcircuitsResolveAsNgspiceResolvesThem) {
    const auto spice = ngspiceValues("scope");
    const auto ours = flatValues(sourcePath("tests/data/netlist/scope.cir"));
    ASSERT_EQ(13u, spice.size());
    for (const auto& s : spice) {
        ASSERT_TRUE(ours.count(s.first)) << s.first;
        EXPECT_DOUBLE_EQ(s.second, ours.at(s.first)) << s.first;
    }
}

TEST(NetlistValues, ExpressionErrorsNameTheExpression) {
    auto lookup = [](const std::string& n, double& v) {
        if (n != "a") return false;
        v = 2;
        return true;
    };
    EXPECT_DOUBLE_EQ(7, evaluateExpression(" a * 3 + 1 ", lookup));
    for (const char* bad : {"a +", "(a", "b * 2", "foo(1)", "1/0", "sqrt(-1)", "min(1)", "a ? 1", "2 $ 3", "a a"}) {
        try {
            evaluateExpression(bad, lookup);
            ADD_FAILURE() << bad;
        } catch (const NetlistError& e) {
            EXPECT_EQ(NetlistError::Expression, e.kind()) << bad;
            EXPECT_NE(std::string::npos, e.message().find(bad)) << e.message();
        }
    }
    // Deep nesting is refused, not a crash.
    EXPECT_THROW(evaluateExpression(std::string(100000, '(') + "1", lookup), NetlistError);
    EXPECT_THROW(evaluateExpression(std::string(100000, '-') + "1", lookup), NetlistError);
}

TEST(NetlistReader, TitleCommentsContinuationsCaseAndControlBlocks) {
    const std::string text =
        "R1 is the title, not a resistor\n"
        "* a comment\n"
        "\n"
        "r2 IN Out 1k ; a trailing comment\n"
        "C1 out 0\n"
        "* a comment between a card and its continuation\n"
        "+ 10N $ another comment\n"
        ".control\n"
        "R9 this is not read\n"
        ".endc\n"
        ".PARAM Big = {2 * 3}\n"
        "R3 out 0 {BIG}\n"
        ".end\n"
        "R4 after the end\n";
    const Netlist n = NetlistReader().read(text, "t.cir");
    EXPECT_EQ("R1 is the title, not a resistor", n.title);
    const auto flat = Flattener(n).flatten().devices;
    ASSERT_EQ(3u, flat.size());
    EXPECT_EQ("r2", flat[0].key);
    EXPECT_EQ((std::vector<std::string>{"in", "out"}), flat[0].nodes);
    EXPECT_DOUBLE_EQ(1e-8, flat[1].value);
    EXPECT_EQ(5, flat[1].place.line);
    EXPECT_DOUBLE_EQ(6, flat[2].value);
}

TEST(NetlistReader, IncludesAreReadBesideTheIncludingFile) {
    std::map<std::string, std::string> files = {
        {"/a/lib/parts.inc", ".subckt half in out\nR1 in out 1k\nR2 out 0 1k\n.ends\n.include more.inc\n"},
        {"/a/lib/more.inc", ".model DX D(IS=1n)\n"}};
    NetlistReader reader([&](const std::string& path, std::string& text) {
        auto it = files.find(path);
        if (it == files.end()) return false;
        text = it->second;
        return true;
    });
    const Netlist n = reader.read("t\n.include lib/parts.inc\nX1 a b half\nR3 a 0 1\n.end\n", "/a/top.cir");
    EXPECT_EQ(1u, n.top->subcircuits.count("half"));
    EXPECT_EQ(1u, n.top->models.count("dx"));
    try {
        reader.read("t\n\n.include missing.inc\n", "/a/top.cir");
        FAIL();
    } catch (const NetlistError& e) {
        EXPECT_EQ(NetlistError::Include, e.kind());
        EXPECT_EQ(3, e.line());
        EXPECT_NE(std::string::npos, e.message().find("/a/missing.inc"));
    }
    // A file that includes itself ends at the limit.
    files["/a/loop.cir"] = "t\n.include loop.cir\n";
    EXPECT_THROW(reader.read(files["/a/loop.cir"], "/a/loop.cir"), NetlistError);
}

TEST(NetlistImport, PotsTransformersModelsAndPartsMapOntoTheElements) {
    const std::string text =
        "mapping\n"
        "*kelm input Vsig\n"
        "*kelm output o2\n"
        "*kelm pot Tone RA RB\n"
        ".model QN NPN(IS=1f BF=200 VA=50 PE=0.7 ME=0.4 C2=2f)\n"
        ".model QP PNP(IS=2f)\n"
        ".model DD D(IS=1n CJ0=2p)\n"
        ".model JN NJF(VT0=-1 BETA=1m)\n"
        ".model MN NMOS(LEVEL=1 KP=50u VTO=1)\n"
        ".subckt TL072 inp inn out\nE1 out 0 inp inn 1e6\n.ends\n"
        "Vsig in 0 DC 0.5 SIN(0 1 1k)\n"
        "VB b 0 9\n"
        "RA in w 30k\nRB w 0 70k\n"
        "L1 w 0 1\nL2 s 0 4\nK1 L1 L2 -0.5\n"
        "Rs s 0 1k\n"
        "Q1 b w e QN 2\nQ2 b w e 0 QP\nRe e 0 1k\n"
        "D1 e 0 DD\n"
        "J1 b w e JN\n"
        "M1 b w e e MN W=10u\n"
        "X1 w o1 o2 TL072\nR1 o1 o2 10k\nR2 o2 0 10k\n"
        "X2 b w e 12AX7\n"
        ".end\n";
    const auto r = importText(text);
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(r.document.c_str())) << r.document;
    // The pot: RA from end a to the wiper; its control starts where the netlist has it.
    auto pot = elementOf(doc, "Tone");
    EXPECT_STREQ("Potentiometer", pot.attribute("Type").value());
    EXPECT_DOUBLE_EQ(100e3, pot.child("Properties").attribute("Resistance").as_double());
    EXPECT_EQ((std::vector<std::string>{"in", "w", "GND"}), nodesOf(pot));
    auto control = doc.select_node("//Control[@Name='Tone']").node();
    EXPECT_DOUBLE_EQ(0.3, control.attribute("Value").as_double());
    EXPECT_FALSE(elementOf(doc, "RA"));
    // K with a negative coupling: the secondary turned round.
    auto k = elementOf(doc, "K1");
    EXPECT_STREQ("Transformer", k.attribute("Type").value());
    EXPECT_STREQ("1|4", k.child("Properties").attribute("Inductances").value());
    EXPECT_DOUBLE_EQ(0.5, k.child("Properties").attribute("Coupling").as_double());
    EXPECT_EQ((std::vector<std::string>{"w", "GND", "GND", "s"}), nodesOf(k));
    EXPECT_FALSE(elementOf(doc, "L1"));
    // Model cards under the element's names, ngspice's aliases and the area factor applied.
    auto q1 = elementOf(doc, "Q1").child("Properties");
    EXPECT_STREQ("NPN", q1.attribute("Polarity").value());
    EXPECT_DOUBLE_EQ(2e-15, q1.attribute("Is").as_double());
    EXPECT_DOUBLE_EQ(50, q1.attribute("Vaf").as_double());
    EXPECT_DOUBLE_EQ(0.7, q1.attribute("Vje").as_double());
    EXPECT_DOUBLE_EQ(0.4, q1.attribute("Mje").as_double());
    EXPECT_DOUBLE_EQ(4e-15, q1.attribute("Ise").as_double());
    EXPECT_STREQ("PNP", elementOf(doc, "Q2").child("Properties").attribute("Polarity").value());
    EXPECT_EQ((std::vector<std::string>{"b", "w", "e"}), nodesOf(elementOf(doc, "Q2")));  // substrate dropped
    EXPECT_DOUBLE_EQ(2e-12, elementOf(doc, "D1").child("Properties").attribute("Cjo").as_double());
    auto j = elementOf(doc, "J1").child("Properties");
    EXPECT_STREQ("N", j.attribute("Polarity").value());
    EXPECT_DOUBLE_EQ(-1, j.attribute("Vto").as_double());
    auto m = elementOf(doc, "M1").child("Properties");
    EXPECT_DOUBLE_EQ(5e-5, m.attribute("Kp").as_double());
    EXPECT_DOUBLE_EQ(1e-5, m.attribute("W").as_double());
    EXPECT_DOUBLE_EQ(1e-4, m.attribute("L").as_double());
    // The op-amp by its subcircuit's pin names: non-inverting, output, inverting.
    auto x1 = elementOf(doc, "X1");
    EXPECT_STREQ("OpAmp", x1.attribute("Type").value());
    EXPECT_EQ((std::vector<std::string>{"w", "o2", "o1"}), nodesOf(x1));
    auto x2 = elementOf(doc, "X2");
    EXPECT_STREQ("Triode", x2.attribute("Type").value());
    EXPECT_STREQ("12AX7", x2.child("Properties").attribute("Type").value());
    // The input keeps its DC value; a nonlinear circuit at 48 kHz runs at 4x between filters.
    auto vin = elementOf(doc, "Vsig").child("Properties");
    EXPECT_DOUBLE_EQ(0.5, vin.attribute("DCOffset").as_double());
    EXPECT_STREQ("4", doc.select_node("//Graph[@Name='Up']").node().attribute("Multiplier").value());
    EXPECT_STREQ("Down", doc.select_node("/System/Outputs/Output").node().attribute("Graph").value());
    EXPECT_STREQ("o2", doc.select_node("/System/Outputs/Output").node().attribute("Node").value());
    // The netlist's lines are in the comments.
    EXPECT_NE(std::string::npos, r.document.find("<!-- test.cir:15 RA in w 30k -->"));
}

TEST(NetlistImport, InputsOutputsAndRatesByOptionDirectiveOrConvention) {
    // A linear circuit runs at the system's rate; Vin and the .print line choose.
    auto r = importText(kStage);
    EXPECT_NE(std::string::npos, r.document.find("<Output Graph=\"Circuit\" Node=\"out\"/>"));
    EXPECT_EQ(std::string::npos, r.document.find("Multiplier"));
    // Options choose over the netlist; two inputs in order, a differential output.
    NetlistImporter::Options o;
    o.inputs = {"V2", "vin"};
    o.outputs = {"v(in)"};
    r = importText("t\nVin in 0 0\nV2 b in 1\nR1 b out 1k\nR2 out 0 1k\n.print tran v(out,in)\n", o);
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(r.document.c_str()));
    EXPECT_STREQ("0", elementOf(doc, "V2").child("Properties").attribute("InputNumber").value());
    EXPECT_STREQ("false", elementOf(doc, "V2").child("Properties").attribute("UseFixedVoltage").value());
    EXPECT_STREQ("in", doc.select_node("/System/Outputs/Output").node().attribute("Node").value());
    r = importText("t\nVin in 0 0\nV2 b in 1\nR1 b out 1k\nR2 out 0 1k\n.print tran v(out,in)\n");
    EXPECT_NE(std::string::npos, r.document.find("Node=\"v(out,in)\""));
    // The rate sets the oversampling of a nonlinear circuit.
    const std::string tube = "t\nVin g 0 0\nVB b 0 250\nR1 b p 100k\nRk k 0 1k\nX1 p g k 12ax7\n.save p\n";
    for (auto rate : {std::make_pair(44100.0, "4"), std::make_pair(96000.0, "2")}) {
        o = NetlistImporter::Options();
        o.rate = rate.first;
        EXPECT_NE(std::string::npos,
                  importText(tube, o).document.find(std::string("Multiplier=\"") + rate.second + "\""));
    }
    o.rate = 192000;
    EXPECT_EQ(std::string::npos, importText(tube, o).document.find("Multiplier"));
    // What the imported documents are: a netlist by name or by text.
    EXPECT_TRUE(isNetlist("<System/>", "a.cir"));
    EXPECT_TRUE(isNetlist(kStage, "stage"));
    EXPECT_FALSE(isNetlist("  <?xml version=\"1.0\"?><System/>", "stage"));
    EXPECT_EQ("<System/>", systemDescription("<System/>", "a.xml"));
}

TEST(NetlistImport, ErrorsNameTheirKindPlaceAndName) {
    struct Case {
        std::string text;
        NetlistError::Kind kind;
        int line;
        std::string name;
    } cases[] = {
        {"t\nVin a 0 0\nB1 a 0 V=1\n", NetlistError::Unsupported, 3, "B1"},
        {"t\nVin a 0 0\nR1 a 0 1\nG1 a 0 a 0 1\n", NetlistError::Unsupported, 4, "G1"},
        {"t\nVin a 0 0\nF1 a 0 Vin 1\n", NetlistError::Unsupported, 3, "F1"},
        {"t\nVin a 0 0\nH1 a 0 Vin 1\n", NetlistError::Unsupported, 3, "H1"},
        {"t\nVin a 0 0\nI1 a 0 1m\n", NetlistError::Unsupported, 3, "I1"},
        {"t\nVin a 0 0\nT1 a 0 b 0 Z0=50 TD=1n\n", NetlistError::Unsupported, 3, "T1"},
        {"t\nVin a 0 0\nE1 b 0 VALUE={V(a)*2}\n", NetlistError::Unsupported, 3, "E1"},
        {"t\nVin a 0 0\nD1 a 0 NOSUCH\n", NetlistError::UnknownModel, 3, "NOSUCH"},
        {"t\nVin a 0 0\nX1 a 0 nosub\n", NetlistError::UnknownSubcircuit, 3, "nosub"},
        {"t\nVin a 0 0\nR1 a b 1k\nR2 a 0 1k\n.print tran v(a)\n", NetlistError::DanglingNode, 3, "b"},
        {"t\nV1 a 0 0\nR1 a 0 1k\n.print tran v(a)\n", NetlistError::MissingInput, 0, ""},
        {"t\n*kelm input Vx\nVin a 0 0\nR1 a 0 1k\n.print tran v(a)\n", NetlistError::MissingInput, 2, "Vx"},
        {"t\nVin a 0 0\nR1 a 0 1k\n", NetlistError::MissingOutput, 0, ""},
        {"t\nVin a 0 0\nR1 a 0 1k\n\n.print tran v(zz)\n", NetlistError::MissingOutput, 5, "zz"},
        {"t\n.param p={1+}\nVin a 0 0\nR1 a 0 {p}\n.print tran v(a)\n", NetlistError::Expression, 2, "1+"},
        {"t\nVin a 0 0\nR1 a 0 {q*2}\n.print tran v(a)\n", NetlistError::Expression, 3, "q*2"},
        {"t\n.param a={b} b={a}\nVin x 0 0\nR1 x 0 {a}\n.print tran v(x)\n", NetlistError::Expression, 2, "a"},
        {"t\nVin a 0 0\nR1 a 0 1k\nr1 a 0 2k\n.print tran v(a)\n", NetlistError::Duplicate, 4, "r1"},
        {"t\nVin a 0 0\n.subckt s a\nR1 a 0 1\n", NetlistError::Syntax, 3, "s"},
        {"t\nVin a 0 0\n.subckt s a b\nR1 a b 1\n.ends\nX1 a s\n.print tran v(a)\n", NetlistError::Syntax, 6, "X1"},
        {"t\n.subckt s a\nX1 a s\n.ends\nVin a 0 0\nX1 a s\n", NetlistError::TooLarge, 3, "X1"},
        {"t\nVin a 0 0\nR1 a 0 1k\n*kelm pot P R1 R9\n.print tran v(a)\n", NetlistError::Syntax, 4, "R9"},
        {"t\n+ 1k\n", NetlistError::Syntax, 2, "+"},
        {"t\nVin a 0 0\nR1 a 0 {1k\n", NetlistError::Syntax, 3, "{1k"},
    };
    for (const Case& c : cases) {
        const NetlistError e = importError(c.text);
        EXPECT_EQ(c.kind, e.kind()) << c.text << e.message();
        EXPECT_EQ(c.line, e.line()) << c.text << e.message();
        EXPECT_EQ("test.cir", e.file()) << c.text;
        EXPECT_EQ(c.name, e.name()) << c.text << e.message();
        if (c.line > 0) {
            EXPECT_EQ(0u, e.message().find("test.cir:" + std::to_string(c.line) + ": ")) << e.message();
        }
    }
}
