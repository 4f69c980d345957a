#pragma once
#include <string>
#include <vector>

#include "netlist/NetlistReader.h"

namespace kelm {

// Turns a SPICE netlist into a system description (XML text) the engine runs: one MNA
// graph of the netlist's devices, the chosen voltage sources as the system's inputs, the
// chosen nodes as its outputs, *kelm pot pairs as potentiometers with controls, tube and
// op-amp subcircuits as the engine's own, and, for a nonlinear circuit, oversampling to
// about 192 kHz around it. The document is commented with the netlist's lines.
class NetlistImporter {
public:
    struct Options {
        std::vector<std::string> inputs;   // voltage sources; empty: *kelm input, else Vin
        std::vector<std::string> outputs;  // nodes; empty: *kelm output, else the first .print tran
        double rate = 48000;               // the rate the system will run at, Hz
        // Reads included files; empty: they are read from the file system.
        NetlistReader::FileReader files;
    };
    struct Result {
        std::string document;
        // Notes for the user (values ngspice reads otherwise, parts mapped with a caveat),
        // each "file:line: text".
        std::vector<std::string> messages;
    };

    NetlistImporter() {}
    explicit NetlistImporter(Options options) : options(std::move(options)) {}

    // Throws NetlistError naming the file and line at fault.
    Result import(const std::string& text, const std::string& fileName) const;

    // The file reader used where none is given.
    static bool readFromDisk(const std::string& path, std::string& text);

private:
    Options options;
};

} // namespace kelm
