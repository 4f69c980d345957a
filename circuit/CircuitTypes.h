#pragma once
#include <functional>

#include "circuit/Solver.h"
#include "engine/TypeRegistry.h"

namespace kelm {

class Component;

// Makes a new circuit component, or a new solver, of one type.
typedef std::function<Component*()> ComponentMaker;
typedef std::function<SolverPtr()> SolverMaker;

// The component types that MNA graphs know, by the Type attribute of an Element.
TypeRegistry<ComponentMaker>& componentTypes();
// The solver types, by the Type attribute of a Solver node.
TypeRegistry<SolverMaker>& solverTypes();

// Enters the circuit components and devices and the graph type "MNA". The solver types
// come from the layer that implements them. Safe to call again.
void registerCircuitTypes();

} // namespace kelm
