#include "solvers/EngineTypes.h"

#include <mutex>

#include "circuit/CircuitTypes.h"
#include "dsp/DspTypes.h"
#include "solvers/LinearSolver.h"
#include "solvers/NewtonSolver.h"
#include "solvers/SimplifiedNewtonSolver.h"
#include "solvers/SuccessiveApproximationsSolver.h"

namespace kelm {

namespace {
template <typename T>
SolverPtr makeSolver() {
    return std::make_shared<T>();
}
} // namespace

void registerEngineTypes() {
    static std::once_flag once;
    std::call_once(once, [] {
        registerDspTypes();
        registerCircuitTypes();
        TypeRegistry<SolverMaker>& solvers = solverTypes();
        solvers.add("NewtonRaphson", makeSolver<NewtonSolver>);
        solvers.add("Linear", makeSolver<LinearSolver>);
        solvers.add("SuccessiveApproximations", makeSolver<SuccessiveApproximationsSolver>);
        solvers.add("SimplifiedNewton", makeSolver<SimplifiedNewtonSolver>);
    });
}

} // namespace kelm
