#pragma once
#include <functional>
#include <string>
#include <vector>

#include "netlist/Netlist.h"

namespace kelm {

// Reads a netlist as ngspice does, case-insensitive: the title line, * and ; comments,
// + continuations, .subckt/.ends, .param, .model, .include (relative to the including
// file), .global, .control blocks (skipped), .end; the first .print tran, .plot tran or
// .save line for the outputs; *kelm comment lines as directives. Element lines are kept
// as cards; they are understood when the subcircuits are expanded.
class NetlistReader {
public:
    // Gives the text of a file by its path; false where it cannot be read.
    typedef std::function<bool(const std::string& path, std::string& text)> FileReader;

    // Without a reader, an .include fails.
    explicit NetlistReader(FileReader reader = FileReader()) : readFile(std::move(reader)) {}

    // Throws NetlistError with the file and line of the card at fault.
    Netlist read(const std::string& text, const std::string& fileName);

    // The path of an included file: as written when absolute, else beside the including one.
    static std::string resolve(const std::string& including, const std::string& path);

    // A card's text split into tokens (see Netlist::Card); throws NetlistError (Syntax)
    // on an unclosed brace or quote.
    static std::vector<std::string> tokenize(const std::string& text);

private:
    struct State;
    void readText(const std::string& text, const std::string& fileName, bool hasTitle, State& state);
    void card(const std::string& text, const Netlist::Place& place, State& state);

    FileReader readFile;
};

} // namespace kelm
