#pragma once
#include <memory>
#include <string>
#include <vector>

#include "circuit/PortLayout.h"
#include "engine/Element.h"
#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

class MNAContext;
typedef std::shared_ptr<std::vector<std::string>> NodeNames;
typedef std::shared_ptr<std::vector<int>> NodeIndices;

// A circuit element that stamps itself into the MNA system A x = rhs(x):
// G (nodes by nodes), B (nodes by extras), C (extras by nodes), D (extras by
// extras), its right-hand side and, when nonlinear, a Jacobian stamp that is
// the negative derivative of its rhs entries. Voltages in volts, currents in amperes.
class Component : public Element {
public:
    virtual void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
                      const std::shared_ptr<MNAContext>& context) = 0;
    virtual scalar** getG() { return nullptr; }
    virtual scalar** getB() { return nullptr; }
    virtual scalar** getC() { return nullptr; }
    virtual scalar** getD() { return nullptr; }
    // x may be changed by the component (a tube's limiter writes back).
    virtual scalar* getRhs(scalar*) { return nullptr; }
    virtual int getNumberOfExtraVariables() { return 0; }
    virtual bool isNonlinear() { return false; }
    virtual scalar** getJacobian(scalar*) { return nullptr; }
    // getRhs and getJacobian at the same x from one evaluation (one limiting of x, one
    // table look-up): returns the rhs and sets stamp. Either may be null, as from those two.
    virtual scalar* evaluate(scalar* x, scalar**& stamp) {
        scalar* r = getRhs(x);
        stamp = getJacobian(x);
        return r;
    }
    virtual void setNodes(const NodeIndices& n) { nodes = n; }
    virtual const NodeIndices& getNodes() const { return nodes; }
    virtual const NodeNames& getNodeNames() const { return nodeNames; }
    virtual void setFirstExtraVariable(int index) { firstExtraVariable = index; }
    virtual bool hasRhs() { return false; }
    // False when getRhs ignores x and its result stays the same from the end of
    // nextSample to the next one (sources, capacitor memory): the solvers then
    // evaluate it once per sample instead of once per iteration.
    virtual bool rhsReadsSolution() { return true; }
    // True for a component whose stamps follow the signal from sample to sample
    // (and announce it with MNAContext::setStampsChanged): the context keeps the
    // sum of all other stamps, so that a change costs a few additions.
    virtual bool hasSignalDependentStamps() { return false; }
    virtual bool isFixedVoltage() { return false; }
    virtual std::string getFixedVoltageNode() const { return fixedVoltageNode; }

    // What the solve kernels read of a component, beside its stamps. A component that
    // answers none of these and has an rhs or a Jacobian runs only under the general
    // Newton iteration.

    // A source whose rhs is an affine function of the circuit's inputs alone (it reads no
    // solution and holds no memory): the kernels take the function apart by evaluating it.
    virtual bool rhsAffineInInputs() { return false; }

    // A linear component with memory: false where it has none. The description holds
    // from the moment the sample rate is known until A next changes.
    virtual bool describeMemory(MemoryModel&) { return false; }
    // Its states (as MemoryModel numbers them, in amperes or volts), read and set in
    // double, so that a solve kernel can run the updates itself and hand them back.
    virtual void readMemory(double*) const {}
    virtual void writeMemory(const double*) {}

    // A nonlinear device: its ports (see PortLayout), or null where it has none.
    virtual const PortLayout* portLayout() const { return nullptr; }
    // At the port voltages v (V), which the device may limit in place against the point
    // of its last evaluation, the port currents i (A), their Jacobian di (di/dv, S,
    // ports by ports, row-major), the forced outputs f (V) and df (df/dv, outputs by
    // ports, row-major).
    virtual void evaluatePorts(double* /*v*/, double* /*i*/, double* /*di*/, double* /*f*/, double* /*df*/) {}
    // Devices whose currents depend on their past (junction charge): at the start of a
    // sample, the port voltages (V) of the last one's solution.
    virtual bool hasPortMemory() const { return false; }
    virtual void acceptPorts(const double* /*v*/) {}

    // A component whose stamps follow the signal: the conductance that does (false where
    // there is none such), and its value (S) for the sensed voltage (V) of the last
    // solution; the component keeps the value and the stamp it gives.
    virtual bool describeSignalConductance(SignalConductance&) { return false; }
    virtual double updateSignalConductance(double /*sensed*/) { return 0; }

protected:
    // The base body: stores name, context and node names.
    void initBase(const std::string& name, const NodeNames& names, const std::shared_ptr<MNAContext>& ctx);
    int nodeCount() const { return nodeNames ? static_cast<int>(nodeNames->size()) : 0; }
    static bool isGround(const std::string& node) { return node == "GND" || node == "0"; }

    MNAContext* context = nullptr;  // owner of this component; not owned
    NodeNames nodeNames;
    NodeIndices nodes;
    int firstExtraVariable = -1;
    std::string fixedVoltageNode;
};

} // namespace kelm
