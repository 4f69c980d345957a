#include "solvers/SolverFactory.h"

#include "engine/KELMException.h"
#include "solvers/LinearSolver.h"

namespace kelm {

SolverPtr SolverFactory::create(const std::string& type) {
    if (type == "Linear") return std::make_shared<LinearSolver>();
    throw KELMException("Unknown solver type: " + type);
}

} // namespace kelm
