#pragma once
#include <memory>
#include <string>

#include "circuit/SampleKernel.h"
#include "math/DenseTypes.h"
#include "engine/PropertyMap.h"

namespace kelm {

class MNAContext;

// Advances the unknowns of a circuit's A x = rhs(x) by one sample.
class Solver {
public:
    virtual void setProperties(const PropertyMapPtr& properties) = 0;
    virtual void init(const std::shared_ptr<MNAContext>& context) = 0;
    virtual void initMatrix() = 0;
    // A changed only in the stamps of components with signal-dependent stamps
    // (MNAContext::onlySignalStampsChanged). The default takes it as any change.
    virtual void restamp() { initMatrix(); }
    virtual ~Solver() {}
    // x: last solution in, this sample's solution out. True when converged.
    virtual bool solve(DenseVector& x) = 0;
    // Where solve() did not converge on an operating point: another way to it, from the
    // supplies up (source stepping). False where the solver has none or it failed too.
    virtual bool solveFromSupplies(DenseVector&) { return false; }
    // The kernel that runs this solver's circuit (inputs and outputs: the circuit's
    // counts), chosen for the circuit as it stands, with the reason for the choice in
    // `reason`; null where only this solver's own per-sample solve will do (the reason
    // then says why).
    virtual std::unique_ptr<SampleKernel> makeKernel(int /*inputs*/, int /*outputs*/, std::string& reason) {
        reason = "this solver runs its own iteration";
        return nullptr;
    }

protected:
    std::shared_ptr<MNAContext> context;
};

typedef std::shared_ptr<Solver> SolverPtr;

} // namespace kelm
