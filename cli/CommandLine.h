#pragma once
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cli/Plot.h"

namespace kelm {
namespace cli {

// A command line the tool cannot run: the message says why, the usage follows.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a command line asks the tool to do.
struct Options {
    std::string command;
    std::string system;
    std::string in;
    std::string out;
    int block = 512;
    double seconds = 4;
    int rate = 48000;
    std::vector<std::pair<std::string, float>> sets;
    std::string format;
    bool progress = false;  // render: a progress line from the start, on a terminal or not
    std::string netlist;               // import: the netlist read
    std::vector<std::string> inputs;   // import: --input, voltage sources of the netlist
    std::vector<std::string> outputs;  // import: --output, nodes of the netlist
    Plot::Request plot;
};

// Reads argv[1] as the command and the rest as its options; throws UsageError on anything else.
Options parseCommandLine(int argc, char** argv);

} // namespace cli
} // namespace kelm
