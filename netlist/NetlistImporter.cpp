#include "netlist/NetlistImporter.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "netlist/Flattener.h"
#include "netlist/ModelParameters.h"
#include "netlist/NetlistError.h"

namespace kelm {

namespace {

typedef Flattener::Device Device;

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string number(double v) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.10g", v);
    return buffer;
}

// Text for an attribute value.
std::string attribute(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += (static_cast<unsigned char>(c) < 0x20) ? '?' : c;
        }
    }
    return out;
}

// Text for a comment: no "--", no control characters, no '-' at the end.
std::string commentText(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (static_cast<unsigned char>(c) < 0x20) c = ' ';
        if (c == '-' && !out.empty() && out.back() == '-') out += ' ';
        out += c;
    }
    if (!out.empty() && out.back() == '-') out += ' ';
    return out;
}

std::string placeText(const Netlist::Place& p) {
    std::string file = p.file;
    const size_t slash = file.rfind('/');
    if (slash != std::string::npos) file = file.substr(slash + 1);
    return p.line > 0 ? file + ":" + std::to_string(p.line) : file;
}

// The ground name the engine knows.
std::string nodeName(const std::string& n) { return n == "0" ? "GND" : n; }

// One element of the MNA graph.
struct Element {
    std::string type, name;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<std::string> nodes;
    std::vector<std::string> comments;  // the netlist's lines behind it, and notes
};

// Which pin of a tube or op-amp subcircuit a declared pin name stands for.
int pinRole(const std::string& name, const std::vector<std::vector<const char*>>& roles) {
    for (size_t r = 0; r < roles.size(); ++r)
        for (const char* n : roles[r])
            if (name == n) return static_cast<int>(r);
    return -1;
}

// The nodes of a tube or op-amp in the element's order; supply pins of an op-amp left out.
std::vector<std::string> partNodes(const Device& d) {
    std::vector<std::vector<const char*>> roles;
    std::vector<int> positional;  // the element's node for each pin in the usual order (-1: not passed on)
    std::string what;
    switch (d.part.kind) {
    case KnownPart::Triode:
        roles = {{"p", "a", "plate", "anode"}, {"g", "g1", "grid"}, {"k", "c", "cathode"}};
        positional = {0, 1, 2};
        what = "a triode takes plate, grid, cathode";
        break;
    case KnownPart::Pentode:
        roles = {{"p", "a", "plate", "anode"}, {"s", "g2", "screen"}, {"g", "g1", "grid"}, {"k", "c", "cathode"}};
        positional = {0, 1, 2, 3};
        what = "a pentode takes plate, screen, grid, cathode";
        break;
    default:
        // OpAmp: non-inverting input, output, inverting input.
        roles = {{"inp", "in+", "+in", "p", "non", "noninv", "ninv", "plus", "pos", "in_p", "vp", "nin"},
                 {"out", "o", "output", "vout", "vo"},
                 {"inn", "in-", "-in", "n", "inv", "minus", "neg", "in_n", "vn", "iin"}};
        if (d.nodes.size() == 3) positional = {0, 2, 1};
        else if (d.nodes.size() == 5) positional = {0, 2, -1, -1, 1};  // in+ in- V+ V- out
        what = "an op-amp takes in+ in- out, or in+ in- V+ V- out";
        break;
    }
    const size_t count = roles.size();
    std::vector<std::string> nodes(count);
    // By the names the subcircuit gives its pins, where each role is named once.
    if (!d.pinNames.empty()) {
        std::vector<int> found(count, -1);
        bool clear = true;
        for (size_t i = 0; i < d.pinNames.size(); ++i) {
            const int r = pinRole(d.pinNames[i], roles);
            if (r < 0) continue;
            if (found[r] >= 0) clear = false;
            found[r] = static_cast<int>(i);
        }
        for (int f : found) clear = clear && f >= 0;
        if (clear) {
            for (size_t r = 0; r < count; ++r) nodes[r] = d.nodes[found[r]];
            return nodes;
        }
    }
    if (positional.size() != d.nodes.size())
        throw NetlistError(NetlistError::Syntax, d.name,
                           d.name + " (" + d.modelName + ") has " + std::to_string(d.nodes.size()) + " nodes: " + what);
    for (size_t i = 0; i < positional.size(); ++i)
        if (positional[i] >= 0) nodes[positional[i]] = d.nodes[i];
    return nodes;
}

} // namespace

bool NetlistImporter::readFromDisk(const std::string& path, std::string& text) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    std::ostringstream s;
    s << f.rdbuf();
    text = s.str();
    return static_cast<bool>(f) || f.eof();
}

NetlistImporter::Result NetlistImporter::import(const std::string& text, const std::string& fileName) const {
    NetlistReader reader(options.files ? options.files : NetlistReader::FileReader(readFromDisk));
    const Netlist netlist = reader.read(text, fileName);
    Flattener::Result flat = Flattener(netlist).flatten();
    std::vector<Device>& devices = flat.devices;
    std::vector<Netlist::Note> notes = netlist.notes;
    notes.insert(notes.end(), flat.notes.begin(), flat.notes.end());
    const Netlist::Place commandLine{"command line", 0};

    // Names are unique, as ngspice wants them.
    std::map<std::string, size_t> byName;
    for (size_t i = 0; i < devices.size(); ++i) {
        auto found = byName.find(devices[i].key);
        if (found != byName.end())
            throw NetlistError(NetlistError::Duplicate, devices[i].name,
                               devices[i].name + " is already defined at " + placeText(devices[found->second].place))
                .at(devices[i].place.file, devices[i].place.line);
        byName[devices[i].key] = i;
    }
    auto find = [&](const std::string& name, char kind) -> Device* {
        auto it = byName.find(lower(name));
        return it != byName.end() && devices[it->second].kind == kind ? &devices[it->second] : nullptr;
    };

    // Nodes connected once are errors; each device's connections count, supply pins too.
    {
        std::map<std::string, int> count;
        std::map<std::string, const Device*> first;
        for (const Device& d : devices) {
            for (const auto* list : {&d.nodes, &d.spareNodes})
                for (const std::string& n : *list) {
                    if (n == "0") continue;
                    if (!count[n]++) first[n] = &d;
                }
        }
        for (const Device& d : devices) {
            for (const auto* list : {&d.nodes, &d.spareNodes})
                for (const std::string& n : *list)
                    if (n != "0" && count[n] == 1)
                        throw NetlistError(NetlistError::DanglingNode, n,
                                           "node " + n + " is connected only to " + d.name)
                            .at(d.place.file, d.place.line);
        }
    }

    std::vector<Element> elements;
    std::set<std::string> consumed;  // devices taken into another element (pots, transformers)
    std::vector<std::string> messages;
    for (const auto& n : notes)
        if (n.shown) messages.push_back(placeText(n.place) + ": " + n.text);

    // Coupled inductors: one Transformer for each K line.
    for (Device& k : devices) {
        if (k.kind != 'k') continue;
        Device* l[2] = {find(k.coupled[0], 'l'), find(k.coupled[1], 'l')};
        for (int i = 0; i < 2; ++i) {
            if (!l[i])
                throw NetlistError(NetlistError::Syntax, k.coupled[i],
                                   k.name + " couples " + k.coupled[i] + ", which is not an inductor")
                    .at(k.place.file, k.place.line);
            if (consumed.count(l[i]->key))
                throw NetlistError(NetlistError::Unsupported, l[i]->name,
                                   k.name + ": " + l[i]->name + " is coupled more than once, which is not supported")
                    .at(k.place.file, k.place.line);
        }
        if (l[0] == l[1])
            throw NetlistError(NetlistError::Syntax, k.name, k.name + " couples an inductor with itself")
                .at(k.place.file, k.place.line);
        double coupling = k.value;
        Element e;
        e.type = "Transformer";
        e.name = k.name;
        e.comments = {placeText(l[0]->place) + " " + l[0]->text, placeText(l[1]->place) + " " + l[1]->text,
                      placeText(k.place) + " " + k.text};
        std::vector<std::string> secondary = {l[1]->nodes[0], l[1]->nodes[1]};
        if (coupling < 0) {
            // A negative coupling is the secondary wound the other way.
            std::swap(secondary[0], secondary[1]);
            coupling = -coupling;
            e.comments.push_back("negative coupling: the secondary's nodes swapped");
        }
        if (!(coupling > 0) || coupling > 1)
            throw NetlistError(NetlistError::Syntax, k.name, k.name + ": a coupling must lie between 0 and 1")
                .at(k.place.file, k.place.line);
        if (coupling >= 0.9999) {
            coupling = 0.9999;
            const std::string why = k.name + ": coupling of 1 taken as 0.9999 (coupled inductors need some leakage)";
            e.comments.push_back(why);
            messages.push_back(placeText(k.place) + ": " + why);
        }
        e.nodes = {l[0]->nodes[0], l[0]->nodes[1], secondary[0], secondary[1]};
        e.properties = {{"Inductances", number(l[0]->value) + "|" + number(l[1]->value)},
                        {"Coupling", number(coupling)}};
        consumed.insert(l[0]->key);
        consumed.insert(l[1]->key);
        consumed.insert(k.key);
        elements.push_back(e);
    }

    // Potentiometers: *kelm pot NAME RA RB.
    struct Control {
        std::string name, element;
        double value;
    };
    std::vector<Control> controls;
    std::vector<std::string> inputNames, outputNames;
    std::vector<Netlist::Place> inputPlaces, outputPlaces;
    for (const Netlist::Directive& dir : netlist.directives) {
        if (dir.words.empty()) continue;
        const std::string verb = lower(dir.words[0]);
        auto fail = [&](NetlistError::Kind kind, const std::string& name, const std::string& why) {
            throw NetlistError(kind, name, why).at(dir.place.file, dir.place.line);
        };
        if (verb == "input") {
            for (size_t i = 1; i < dir.words.size(); ++i) {
                inputNames.push_back(dir.words[i]);
                inputPlaces.push_back(dir.place);
            }
        } else if (verb == "output") {
            for (size_t i = 1; i < dir.words.size(); ++i) {
                const std::string w = dir.words[i];
                if (w == "(" || w == ")" || w == "," || lower(w) == "v") continue;
                outputNames.push_back(w);
                outputPlaces.push_back(dir.place);
            }
        } else if (verb == "pot") {
            if (dir.words.size() != 4) fail(NetlistError::Syntax, "pot", "*kelm pot needs NAME RA RB");
            const std::string& name = dir.words[1];
            Device* r[2] = {find(dir.words[2], 'r'), find(dir.words[3], 'r')};
            for (int i = 0; i < 2; ++i) {
                if (!r[i]) fail(NetlistError::Syntax, dir.words[2 + i], "pot " + name + ": no resistor " + dir.words[2 + i]);
                if (consumed.count(r[i]->key))
                    fail(NetlistError::Syntax, dir.words[2 + i], "pot " + name + ": " + r[i]->name + " is already used");
            }
            if (r[0] == r[1]) fail(NetlistError::Syntax, name, "pot " + name + ": RA and RB are the same resistor");
            // The wiper is the one node the two resistors share. A resistor with both ends on
            // the wiper is the shorted part of a pot wired as a variable resistor.
            std::set<std::string> a(r[0]->nodes.begin(), r[0]->nodes.end()), b(r[1]->nodes.begin(), r[1]->nodes.end());
            std::vector<std::string> shared;
            for (const std::string& n : a)
                if (b.count(n)) shared.push_back(n);
            if (shared.size() != 1)
                fail(NetlistError::Syntax, name, "pot " + name + ": " + r[0]->name + " and " + r[1]->name +
                                                     " must share one node, the wiper");
            const std::string wiper = shared[0];
            const std::string endA = r[0]->nodes[0] == wiper ? r[0]->nodes[1] : r[0]->nodes[0];
            const std::string endB = r[1]->nodes[0] == wiper ? r[1]->nodes[1] : r[1]->nodes[0];
            const double total = r[0]->value + r[1]->value;
            if (!(total > 0) || r[0]->value < 0 || r[1]->value < 0)
                fail(NetlistError::Syntax, name, "pot " + name + ": the two resistances must add up to more than 0");
            Element e;
            e.type = "Potentiometer";
            e.name = name;
            if (byName.count(lower(name))) e.name = name + "_pot";
            for (const Element& other : elements)
                if (lower(other.name) == lower(e.name)) fail(NetlistError::Duplicate, name, "pot " + name + " named twice");
            e.nodes = {endA, wiper, endB};
            const double position = r[0]->value / total;
            e.properties = {{"Resistance", number(total)}, {"Wiper", number(position)}};
            e.comments = {placeText(dir.place) + " *kelm pot " + name + " " + r[0]->name + " " + r[1]->name,
                          placeText(r[0]->place) + " " + r[0]->text, placeText(r[1]->place) + " " + r[1]->text};
            consumed.insert(r[0]->key);
            consumed.insert(r[1]->key);
            controls.push_back({name, e.name, position});
            elements.push_back(e);
        } else {
            fail(NetlistError::Syntax, dir.words[0],
                 "unknown directive *kelm " + dir.words[0] + " (known: input, output, pot)");
        }
    }

    // Inputs: --input, else *kelm input, else a source named Vin.
    if (!options.inputs.empty()) {
        inputNames = options.inputs;
        inputPlaces.assign(inputNames.size(), commandLine);
    }
    if (inputNames.empty() && find("vin", 'v')) {
        inputNames = {find("vin", 'v')->name};
        inputPlaces = {find("vin", 'v')->place};
    }
    if (inputNames.empty())
        throw NetlistError(NetlistError::MissingInput, "",
                           "no input: name a voltage source with *kelm input NAME or --input NAME, or call it Vin")
            .at(fileName, 0);
    std::map<std::string, int> inputNumber;
    for (size_t i = 0; i < inputNames.size(); ++i) {
        Device* v = find(inputNames[i], 'v');
        if (!v)
            throw NetlistError(NetlistError::MissingInput, inputNames[i],
                               "input " + inputNames[i] + " is not a voltage source of the netlist")
                .at(inputPlaces[i].file, inputPlaces[i].line);
        if (inputNumber.count(v->key))
            throw NetlistError(NetlistError::Duplicate, inputNames[i], "input " + inputNames[i] + " named twice")
                .at(inputPlaces[i].file, inputPlaces[i].line);
        const int k = static_cast<int>(inputNumber.size());
        inputNumber[v->key] = k;
    }

    // Outputs: --output, else *kelm output, else the first .print tran, .plot tran or .save.
    std::set<std::string> allNodes;
    for (const Device& d : devices)
        for (const std::string& n : d.nodes) allNodes.insert(n);
    struct Probe {
        std::string node, reference;
        Netlist::Place place;
    };
    std::vector<Probe> probes;
    auto plainNode = [](std::string n) {
        n = lower(n);
        if (n.size() > 3 && n.compare(0, 2, "v(") == 0 && n.back() == ')') n = n.substr(2, n.size() - 3);
        return n;
    };
    if (!options.outputs.empty()) {
        for (const std::string& o : options.outputs) probes.push_back({plainNode(o), "", commandLine});
    } else if (!outputNames.empty()) {
        for (size_t i = 0; i < outputNames.size(); ++i) probes.push_back({plainNode(outputNames[i]), "", outputPlaces[i]});
    } else {
        for (const Netlist::Probe& p : netlist.probes) probes.push_back({p.node, p.reference, p.place});
    }
    if (probes.empty())
        throw NetlistError(NetlistError::MissingOutput, "",
                           "no output: name a node with *kelm output NODE, --output NODE or a .print tran line")
            .at(fileName, 0);
    for (Probe& p : probes) {
        if (p.node == "gnd") p.node = "0";
        if (p.reference == "gnd") p.reference = "0";
        for (const std::string* n : {&p.node, &p.reference}) {
            if (n->empty() || *n == "0") continue;
            if (!allNodes.count(*n))
                throw NetlistError(NetlistError::MissingOutput, *n, "output " + *n + " is not a node of the netlist")
                    .at(p.place.file, p.place.line);
        }
        if (p.node == "0" && (p.reference.empty() || p.reference == "0"))
            throw NetlistError(NetlistError::MissingOutput, "0", "ground is no output").at(p.place.file, p.place.line);
    }

    // Every other device as its element.
    bool nonlinear = false, supplies = false;
    for (const Device& d : devices) {
        if (consumed.count(d.key) || d.kind == 'k') continue;
        Element e;
        e.name = d.name;
        e.nodes = d.nodes;
        e.comments.push_back(placeText(d.place) + " " + d.text);
        auto modelled = [&](const char* type) {
            e.type = type;
            nonlinear = true;
            if (!d.model) {
                e.properties.push_back({"Model", d.modelName});
                e.comments.push_back("model " + d.modelName + " from the engine's library: the netlist has no card for it");
            }
            const ModelProperties m = modelProperties(d.kind, d.modelValues, d.area);
            for (const auto& p : m.properties) e.properties.push_back({p.first, number(p.second)});
            if (!m.ignored.empty()) {
                std::string list;
                for (const std::string& s : m.ignored) list += (list.empty() ? "" : ", ") + s;
                e.comments.push_back("model " + d.modelName + ": not simulated: " + list);
            }
        };
        switch (d.kind) {
        case 'r':
            e.type = "Resistor";
            e.properties = {{"Resistance", number(d.value)}};
            break;
        case 'c':
            e.type = "Capacitor";
            e.properties = {{"Capacitance", number(d.value)}};
            break;
        case 'l':
            e.type = "Inductor";
            e.properties = {{"Inductance", number(d.value)}};
            break;
        case 'e':
            e.type = "VCVS";
            e.properties = {{"Gain", number(d.value)}};
            break;
        case 'd':
            modelled("Diode");
            break;
        case 'q':
            modelled("BJT");
            if (d.model) e.properties.insert(e.properties.begin(), {"Polarity", d.model->type == "pnp" ? "PNP" : "NPN"});
            break;
        case 'j':
            modelled("JFET");
            if (d.model) e.properties.insert(e.properties.begin(), {"Polarity", d.model->type == "pjf" ? "P" : "N"});
            break;
        case 'm': {
            modelled("MOSFET");
            if (d.model) {
                for (const auto& p : d.model->parameters)
                    if (p.name == "level") {
                        double level = 1;
                        for (const auto& v : d.modelValues)
                            if (v.first == "level") level = v.second;
                        if (level != 1)
                            throw NetlistError(NetlistError::Unsupported, d.modelName,
                                               "model " + d.modelName + ": only MOSFETs of level 1 are supported")
                                .at(d.model->place.file, d.model->place.line);
                    }
                e.properties.insert(e.properties.begin(), {"Polarity", d.model->type == "pmos" ? "P" : "N"});
            }
            e.properties.push_back({"W", number(d.width)});
            e.properties.push_back({"L", number(d.length)});
            if (d.spareNodes[0] != d.nodes[2]) {
                const std::string why = d.name + ": body node " + d.spareNodes[0] + " taken as tied to the source";
                e.comments.push_back(why);
                messages.push_back(placeText(d.place) + ": " + why);
            }
            break;
        }
        case 'v': {
            auto in = inputNumber.find(d.key);
            if (in != inputNumber.end()) {
                e.type = "VoltageInputSource";
                e.properties = {{"InputNumber", std::to_string(in->second)}};
                if (d.value != 0) e.properties.push_back({"DCOffset", number(d.value)});
                e.comments.push_back("the system's input " + std::to_string(in->second) + ", in volts" +
                                     (d.transient.empty() ? "" : "; " + d.transient + " left to ngspice"));
                supplies = supplies || d.value != 0;
            } else {
                e.type = "Battery";
                e.properties = {{"Voltage", number(d.value)}};
                if (!d.transient.empty())
                    e.comments.push_back("held at its value at time 0; " + d.transient + " left out");
                supplies = supplies || d.value != 0;
            }
            // The engine fixes a grounded source's other node; a floating one (or one whose
            // positive node is ground) carries its current as an unknown.
            if (d.nodes[0] == "0" || d.nodes[1] != "0") e.properties.push_back({"UseFixedVoltage", "false"});
            if (d.nodes[0] == "0" && d.nodes[1] == "0")
                throw NetlistError(NetlistError::Syntax, d.name, d.name + " has both nodes at ground")
                    .at(d.place.file, d.place.line);
            break;
        }
        case 'x': {
            e.nodes = partNodes(d);
            if (d.part.kind == KnownPart::OpAmp) {
                e.type = "OpAmp";
                e.comments.push_back(d.modelName + " as the ideal op-amp: no rails, no slew limit, no offset");
                if (e.nodes[1] == "0")
                    throw NetlistError(NetlistError::Syntax, d.name, d.name + ": an op-amp's output cannot be ground")
                        .at(d.place.file, d.place.line);
            } else {
                e.type = d.part.kind == KnownPart::Triode ? "Triode" : "Pentode";
                e.properties = {{"Type", d.part.type}};
                e.comments.push_back(d.modelName + " as the engine's " + e.type + " of type " + d.part.type +
                                     " (Koren plate current, power-law grid current)");
                nonlinear = true;
            }
            break;
        }
        default:
            continue;
        }
        elements.push_back(e);
    }

    // Differential outputs read through a unit-gain VCVS to a node of their own.
    std::vector<std::string> outputs;
    for (const Probe& p : probes) {
        if (p.reference.empty() || p.reference == "0") {
            outputs.push_back(p.node);
            continue;
        }
        const std::string node = "v(" + p.node + "," + p.reference + ")";
        if (std::find(outputs.begin(), outputs.end(), node) != outputs.end()) continue;
        Element e;
        e.type = "VCVS";
        e.name = "probe_" + p.node + "_" + p.reference;
        e.nodes = {node, "0", p.node, p.reference};
        e.properties = {{"Gain", "1"}};
        e.comments = {placeText(p.place) + " the output V(" + p.node + "," + p.reference + ")"};
        elements.push_back(e);
        outputs.push_back(node);
    }
    // An output named twice is read once.
    {
        std::vector<std::string> unique;
        for (const std::string& o : outputs)
            if (std::find(unique.begin(), unique.end(), o) == unique.end()) unique.push_back(o);
        outputs = unique;
    }

    // Oversampling: a nonlinear circuit runs at 4 x 44.1 kHz or more, in factors of 1, 2 or 4.
    int factor = 1;
    if (nonlinear) {
        while (factor < 4 && options.rate * factor < 176400 - 1) factor *= 2;
    }
    const int inputs = static_cast<int>(inputNames.size());
    const std::string circuit = "Circuit";

    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    x << "<!-- Imported from " << commentText(placeText({fileName, 0})) << " by kelm import: "
      << commentText(netlist.title) << "\n";
    x << "     Inputs in volts:";
    for (const std::string& n : inputNames) x << " " << commentText(n);
    x << ". Outputs in volts:";
    for (const std::string& o : outputs) x << " " << commentText(o);
    x << ".\n     Made for " << number(options.rate) << " Hz: ";
    if (factor > 1)
        x << "the circuit runs at " << factor << " x " << number(options.rate) << " = " << number(factor * options.rate)
          << " Hz between an interpolator and a decimator. -->\n";
    else
        x << "the circuit runs at the system's rate. -->\n";
    if (!notes.empty()) {
        x << "<!-- Notes:\n";
        for (const auto& n : notes) x << "     " << commentText(placeText(n.place) + ": " + n.text) << "\n";
        x << "-->\n";
    }
    x << "<System>\n  <Graphs>\n";
    if (factor > 1) {
        x << "    <Graph Name=\"Up\" Type=\"DSP\" Multiplier=\"" << factor << "\">\n";
        x << "      <NumberOfInputs>" << inputs << "</NumberOfInputs>\n      <Inputs>";
        for (int i = 0; i < inputs; ++i) x << "<Input Graph=\"System\" Node=\"" << i << "\"/>";
        x << "</Inputs>\n";
        for (int i = 0; i < inputs; ++i)
            x << "      <Element Type=\"IirInterpolator\" Name=\"up" << i << "\">\n"
              << "        <Properties RelativeCornerFrequency=\"0.485\" Factor=\"" << factor
              << "\" Order=\"2\" Type=\"Butterworth\" Cascade=\"4\"/>\n"
              << "        <Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"" << i << "\"/></Inputs>\n"
              << "      </Element>\n";
        x << "      <Output>";
        for (int i = 0; i < inputs; ++i) x << "<Node Name=\"in" << i << "\" Element=\"up" << i << "\" Index=\"0\"/>";
        x << "</Output>\n    </Graph>\n";
    }
    x << "    <Graph Name=\"" << circuit << "\" Type=\"MNA\">\n";
    x << "      <NumberOfInputs>" << inputs << "</NumberOfInputs>\n      <Inputs>";
    for (int i = 0; i < inputs; ++i) {
        if (factor > 1)
            x << "<Input Graph=\"Up\" Node=\"in" << i << "\"/>";
        else
            x << "<Input Graph=\"System\" Node=\"" << i << "\"/>";
    }
    x << "</Inputs>\n";
    for (const Element& e : elements) {
        for (const std::string& c : e.comments) x << "      <!-- " << commentText(c) << " -->\n";
        x << "      <Element Type=\"" << e.type << "\" Name=\"" << attribute(e.name) << "\">\n        ";
        if (!e.properties.empty()) {
            x << "<Properties";
            for (const auto& p : e.properties) x << " " << p.first << "=\"" << attribute(p.second) << "\"";
            x << "/>";
        }
        for (const std::string& n : e.nodes) x << "<Node Name=\"" << attribute(nodeName(n)) << "\"/>";
        x << "\n      </Element>\n";
    }
    x << "      <Output>";
    for (const std::string& o : outputs) x << "<Node Name=\"" << attribute(o) << "\"/>";
    x << "</Output>\n";
    x << "      <Analysis Type=\"AC\">\n";
    if (nonlinear) {
        x << "        <InitialCondition Type=\"OperatingPoint\">\n"
          << "          <Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1.0e-7\" "
             "AbsoluteTollerance=\"1.0e-7\" MaxIterations=\"200\"/></Solver>\n"
          << "        </InitialCondition>\n"
          << "        <Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1.0e-5\" "
             "AbsoluteTollerance=\"1.0e-5\" MaxIterations=\"20\"/></Solver>\n";
    } else {
        // A circuit without supplies rests at zero; one with them starts from its operating point.
        if (supplies)
            x << "        <InitialCondition Type=\"OperatingPoint\"><Solver Type=\"Linear\"/></InitialCondition>\n";
        else
            x << "        <InitialCondition Type=\"Zero\"><Solver Type=\"Linear\"/></InitialCondition>\n";
        x << "        <Solver Type=\"Linear\"/>\n";
    }
    x << "      </Analysis>\n    </Graph>\n";
    if (factor > 1) {
        x << "    <Graph Name=\"Down\" Type=\"DSP\" Multiplier=\"" << number(1.0 / factor) << "\">\n";
        x << "      <NumberOfInputs>" << outputs.size() << "</NumberOfInputs>\n      <Inputs>";
        for (const std::string& o : outputs) x << "<Input Graph=\"" << circuit << "\" Node=\"" << attribute(o) << "\"/>";
        x << "</Inputs>\n";
        for (size_t i = 0; i < outputs.size(); ++i)
            x << "      <Element Type=\"IirDecimator\" Name=\"down" << i << "\">\n"
              << "        <Properties RelativeCornerFrequency=\"0.485\" Factor=\"" << factor
              << "\" Order=\"2\" Type=\"Butterworth\" Cascade=\"4\"/>\n"
              << "        <Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"" << i << "\"/></Inputs>\n"
              << "      </Element>\n";
        x << "      <Output>";
        for (size_t i = 0; i < outputs.size(); ++i)
            x << "<Node Name=\"" << attribute(outputs[i]) << "\" Element=\"down" << i << "\" Index=\"0\"/>";
        x << "</Output>\n    </Graph>\n";
    }
    x << "  </Graphs>\n  <Outputs>\n";
    for (const std::string& o : outputs)
        x << "    <Output Graph=\"" << (factor > 1 ? "Down" : circuit) << "\" Node=\"" << attribute(o) << "\"/>\n";
    x << "  </Outputs>\n";
    if (!controls.empty()) {
        x << "  <Controls>\n";
        for (const Control& c : controls)
            x << "    <Control Name=\"" << attribute(c.name) << "\" DisplayName=\"" << attribute(c.name)
              << "\" Value=\"" << number(c.value) << "\">\n"
              << "      <Properties><Property Name=\"Wiper\" Graph=\"" << circuit << "\" Element=\""
              << attribute(c.element) << "\"/></Properties>\n    </Control>\n";
        x << "  </Controls>\n";
    }
    x << "</System>\n";
    return {x.str(), messages};
}

} // namespace kelm
