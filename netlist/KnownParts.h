#pragma once
#include <string>

namespace kelm {

// The parts an X instance or a device's model name may stand for without a definition
// in the netlist: the engine's tube types and op-amp, and its built-in device models.
// Names compare without regard to case.
struct KnownPart {
    enum Kind { None, Triode, Pentode, OpAmp };
    Kind kind = None;
    std::string type;  // the engine's name (tube type) for Triode and Pentode
};

// A subcircuit name as a tube type (12AX7, ECC83, EL34 ...) or a common op-amp
// (TL072, JRC4558, LM741, NE5532, OPAMP ...).
KnownPart knownPart(const std::string& subcircuitName);

// Whether the engine's model library has a device model of this name (1N4148, 2N3904 ...).
bool isBuiltInModel(const std::string& name);

} // namespace kelm
