#pragma once
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kelm {

// A netlist as read, before any subcircuit is expanded: the cards of the top level and
// of each .subckt, with their places in the files. Names that SPICE compares without
// regard to case are kept in lower case beside the spelling shown in messages.
class Netlist {
public:
    // Where a card stands: the file as the netlist names it, and the line of its first part.
    struct Place {
        std::string file;
        int line = 0;
    };
    // One logical line (continuations joined) split into tokens: words, {expressions},
    // and = ( ) , as tokens of their own.
    struct Card {
        Place place;
        std::vector<std::string> tokens;
        std::string text;  // the line as written, continuations joined
    };
    // name = expression, in the order written.
    struct Parameter {
        std::string name;  // lower case
        std::string expression;
        Place place;
    };
    struct Model {
        std::string name;  // as written
        std::string type;  // lower case: d npn pnp njf pjf nmos pmos
        std::vector<Parameter> parameters;
        Place place;
    };
    // A .subckt, or the top level (no name, no pins).
    struct Subcircuit {
        std::string name;               // as written
        std::vector<std::string> pins;  // lower case
        std::vector<Parameter> defaults;  // the parameters of its .subckt line
        std::vector<Parameter> parameters;  // its .param lines
        std::vector<Card> elements;
        std::map<std::string, Model> models;  // by lower-case name
        std::map<std::string, std::shared_ptr<Subcircuit>> subcircuits;  // defined inside, by lower-case name
        Subcircuit* parent = nullptr;  // where it is defined
        Place place;
    };
    // A *kelm comment line: its words after "*kelm".
    struct Directive {
        std::vector<std::string> words;
        Place place;
    };
    // What a .print tran, .plot tran or .save line asks for: a node, or two for V(a,b).
    struct Probe {
        std::string node, reference;  // lower case; reference empty for a node to ground
        Place place;
    };
    // A note about the netlist as read (an ignored card, a schematic-style value).
    struct Note {
        Place place;
        std::string text;
        bool shown = false;  // also on the standard error
    };

    std::string title;
    std::shared_ptr<Subcircuit> top = std::make_shared<Subcircuit>();
    std::vector<Directive> directives;
    std::vector<Probe> probes;  // of the first line that has any
    std::vector<std::string> globals;  // .global nodes, lower case
    std::vector<Note> notes;
};

} // namespace kelm
