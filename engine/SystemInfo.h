#pragma once
#include <ostream>

namespace kelm {

class Driver;

// Human-readable description of a running system, and the factory set-up that tools share.
class SystemInfo {
public:
    // Graphs in processing order with types, rates, inputs and outputs; then the controls.
    static void describe(Driver& driver, std::ostream& out);
    // Gives the driver the plug-in's own element factories.
    static void installPluginFactories(Driver& driver);
};

} // namespace kelm
