#pragma once
#include <ostream>

namespace kelm {

class Driver;

// Human-readable description of a running system.
class SystemInfo {
public:
    // Graphs in processing order with types, rates, inputs and outputs; then the controls.
    static void describe(Driver& driver, std::ostream& out);
};

} // namespace kelm
