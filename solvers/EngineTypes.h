#pragma once

namespace kelm {

// Enters every type of the engine's layers in their registries: DSP elements, circuit
// components and devices, solvers, and the graph types. A program calls it once before
// it parses a system description; calling it again changes nothing.
void registerEngineTypes();

} // namespace kelm
