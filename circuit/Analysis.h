#pragma once
#include "circuit/Solver.h"

namespace kelm {

// The analysis of a Circuit: type (0 DC, 1 AC), start (0 OperatingPoint,
// 1 Zero, 2 User), the per-sample solver and the operating-point solver.
struct Analysis {
    int type = 1;
    int initialCondition = 1;
    SolverPtr solver;
    SolverPtr initialConditionSolver;
};

} // namespace kelm
