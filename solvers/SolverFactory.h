#pragma once
#include <string>

#include "solvers/Solver.h"

namespace kelm {

// Makes a solver from its type name in a system description.
class SolverFactory {
public:
    static SolverPtr create(const std::string& type);
};

} // namespace kelm
