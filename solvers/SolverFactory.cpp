#include "solvers/SolverFactory.h"

#include "engine/KELMException.h"
#include "solvers/LinearSolver.h"
#include "solvers/NewtonSolver.h"
#include "solvers/SimplifiedNewtonSolver.h"
#include "solvers/SuccessiveApproximationsSolver.h"

namespace kelm {

SolverPtr SolverFactory::create(const std::string& type) {
    if (type == "NewtonRaphson") return std::make_shared<NewtonSolver>();
    if (type == "Linear") return std::make_shared<LinearSolver>();
    if (type == "SuccessiveApproximations") return std::make_shared<SuccessiveApproximationsSolver>();
    if (type == "SimplifiedNewton") return std::make_shared<SimplifiedNewtonSolver>();
    throw KELMException("Unknown solver type: " + type);
}

} // namespace kelm
