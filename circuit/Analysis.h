#pragma once
#include "circuit/AnalysisType.h"
#include "circuit/Solver.h"

namespace kelm {

// The analysis of a Circuit: its type, its start, the per-sample solver and the
// operating-point solver.
struct Analysis {
    AnalysisType type = AnalysisType::AC;
    InitialCondition initialCondition = InitialCondition::Zero;
    SolverPtr solver;
    SolverPtr initialConditionSolver;
};

} // namespace kelm
