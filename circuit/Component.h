#pragma once
#include <memory>
#include <string>
#include <vector>

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
