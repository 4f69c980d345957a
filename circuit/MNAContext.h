#pragma once
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "circuit/AnalysisType.h"
#include "circuit/Component.h"
#include "math/DenseTypes.h"
#include "engine/Context.h"

namespace kelm {

class MNAEventListener;

// Context of a Circuit: owns the components, numbers nodes and extra unknowns,
// assembles A, rhs(x) and the Jacobian. x holds node voltages, then extra
// currents, then the voltages of fixed nodes.
class MNAContext : public Context {
public:
    MNAContext();
    ~MNAContext() override;
    void setSampleRate(scalar rate) override;
    Element* getElement(const std::string& name) override;
    void addElement(Element* element) override;

    void init();
    void setOutputNames(const std::shared_ptr<std::vector<std::string>>& names) { outputNames = names; }
    void setAnalysisType(AnalysisType type);
    AnalysisType getAnalysisType() const { return analysisType; }
    void notifyNextSample();
    void assembleMatrix();
    // The same matrix with its stamps summed in double (column-major, size() by
    // size()): a small conductance beside a large one keeps its digits. Without the
    // signal stamps, the components whose stamps follow the signal are left out.
    void assembleMatrix(double* M, bool signalStamps = true);

    // Where entry e of component c's rhs goes (its nodes, then its extra unknowns): the row
    // of x, or -1 where the entry reaches nothing (ground, or a node that another component
    // fixes). The entry of a node that c fixes is that node's value.
    int rhsRow(size_t c, int e) const;
    // The row of x that entry e of component c stands for (nodes, then extra unknowns),
    // -1 for ground.
    int unknownRow(size_t c, int e) const;
    // The number of solved unknowns (node voltages and extra currents); the fixed nodes
    // follow them in x.
    int solvedCount() const { return lastNode + extraCount + 1; }
    DenseMatrix& matrix() { return *A; }
    void computeRhs(DenseVector& x, DenseVector& rhs);
    // computeRhs with the part that does not read x (the sources', in a DC analysis) and the
    // values it fixes scaled by `share` (source stepping). Needs rhsSplits().
    void computeRhs(DenseVector& x, DenseVector& rhs, double share);
    DenseMatrix& computeJacobian(DenseVector& x);

    // The right-hand side split for iterating solvers: the part that stays the
    // same through a sample (components whose rhsReadsSolution is false), and
    // the rest. computeConstantRhs then addVaryingRhs gives what computeRhs gives.
    void computeConstantRhs(scalar* x, scalar* rhs);
    void addVaryingRhs(scalar* x, scalar* rhs);
    // True when the split is exact: no node is fixed by two components.
    bool rhsSplits() const { return !fixedRowShared; }
    // Adds the Jacobian stamps of the nonlinear components at x to the T by T
    // column-major matrix J (whose copy of A the caller made).
    void addJacobianStamps(scalar* x, scalar* J);
    void addJacobianStamps(scalar* x, double* J);
    // addVaryingRhs(x, rhs) and addJacobianStamps(x, J) in one pass: a component with
    // both is evaluated once (Component::evaluate).
    void addVaryingRhsAndStamps(scalar* x, scalar* rhs, scalar* J);
    // The one component whose rhs and stamps change within a sample, when nothing else
    // changes within a sample and (unless allowed) no stamp follows the signal; otherwise null.
    Component* soleNonlinear(bool signalStampsAllowed = false) const;
    // A without the stamps of the components that follow the signal, as the last
    // assembleMatrix left it (size() by size(), column-major).
    const scalar* steadyMatrix() const { return steadyPart.data(); }
    // The components whose stamps follow the signal from sample to sample.
    size_t signalDependentCount() const { return signalDependentList.size(); }
    Component* signalDependent(size_t i) const { return slots[signalDependentList[i]].component; }
    // Writes the values of the fixed nodes (as the last rhs computation left them) into
    // their rows of rhs.
    void writeFixedValues(scalar* rhs) const;

    // The right-hand side as a sum of constant sparse columns ("ports") times
    // amplitudes. A component's entries map to the unit column of its first
    // free node and to differences of unit columns, so that a two-terminal
    // current source (equal and opposite entries) drives one difference column
    // and nothing else; a fixed node and an extra unknown have a unit column.
    int portCount() const { return static_cast<int>(portRows.size()); }
    // Writes port p as a dense column of size() entries.
    void portColumn(int p, scalar* column) const;
    // The amplitudes of all ports for x (x may be changed as by computeRhs).
    void computePortAmplitudes(scalar* x, scalar* u);
    // Adds to u the port amplitudes that r, taken as the rhs entries of component
    // c, gives alone (the value of a node that c fixes is written). False when c
    // has no rhs.
    bool addPortAmplitudes(const Component* c, const scalar* r, scalar* u) const;
    const std::vector<int>& outputIndex() const { return outputIndices; }
    DenseVector& solution() { return *x; }
    void setSolution(const DenseVector& v) { *x = v; }
    const ScalarVectorPtr& getOutputs();
    const ScalarVectorPtr& inputs() const { return inputValues; }
    void setInputs(const ScalarVectorPtr& v) { inputValues = v; }
    std::vector<MNAEventListener*>& listeners() { return listenerList; }
    void addListener(MNAEventListener* l);
    bool matrixChanged() const { return changed; }
    void setMatrixChanged(bool flag) {
        changed = flag;
        onlySignalStamps = false;
    }
    // Sets matrixChanged on behalf of a component with signal-dependent stamps;
    // as long as only such components changed, restampSignalDependent suffices.
    void setStampsChanged() {
        if (!changed) onlySignalStamps = true;
        changed = true;
    }
    bool onlySignalStampsChanged() const { return changed && onlySignalStamps; }
    // A := the sum of the other stamps, kept from the last assembleMatrix, plus
    // the present stamps of the components with signal-dependent stamps.
    void restampSignalDependent();
    // The same sum written to M (size() by size(), column-major) instead: the context's
    // own matrix is left as it was.
    void restampSignalDependent(scalar* M);
    // The same for an M that holds the result of an earlier restamp of this context since
    // its last assembleMatrix: only the entries that the signal-dependent stamps reach are
    // reset and restamped.
    void restampSignalDependentEntries(scalar* M);
    int fixedMarker() const { return fixedMarkerValue; }
    bool isInitialized() const { return initialized; }
    int size() const { return lastNode + extraCount - fixedMarkerValue; }

    const std::vector<Component*>& getComponents() const { return components; }
    int nodeIndex(const std::string& name) const;

private:
    int lastNode = -1;
    int extraCount = 0;
    int fixedMarkerValue = -1;
    std::shared_ptr<DenseMatrix> A;
    std::shared_ptr<DenseVector> x;
    std::shared_ptr<DenseMatrix> J;
    std::unordered_map<std::string, Component*> elementsByName;
    std::vector<Component*> components;
    std::unordered_map<std::string, int> nodesByName;
    std::unordered_map<std::string, int> extraByName;
    std::vector<int> firstExtra;
    std::vector<bool> rhsFlags;
    std::vector<bool> nonlinearFlags;
    std::vector<int> extraCounts;
    std::vector<NodeIndices> nodeIndices;
    std::vector<MNAEventListener*> listenerList;
    std::vector<std::string> componentNames;
    ScalarVectorPtr inputValues;
    ScalarVectorPtr outputs;
    std::vector<int> outputIndices;
    std::shared_ptr<std::vector<std::string>> outputNames;
    std::vector<bool> fixedFlags;
    std::vector<int> fixedRow;
    DenseVector fixedValues;
    AnalysisType analysisType = AnalysisType::AC;
    bool initialized = false;
    bool changed = false;
    bool onlySignalStamps = false;
    DenseMatrix steadyPart;  // A without the signal-dependent stamps
    // What the per-iteration loops need of each component, without indirections.
    struct Slot {
        Component* component;
        const int* nodes;
        int k;           // number of nodes
        int m;           // number of extra unknowns
        int firstExtra;
        int fixedRow;    // -1 unless the component fixes a node
    };
    std::vector<Slot> slots;
    std::vector<int> rhsList;
    std::vector<int> nonlinearList;
    std::vector<int> fixedList;
    std::vector<int> signalDependentList;
    template <typename T>
    void stamp(const Slot& s, T* M);
    // Flat lists of where each entry of a component's rhs or Jacobian stamp
    // goes, made once in init, so that the per-iteration loops only add.
    struct Entry {
        int a;     // rhs entry, or stamp row
        int b;     // 1 for the value of a fixed node (rhs), or stamp column
        int dest;  // rhs row, or offset in the column-major T by T matrix
    };
    struct EntryRange {
        Component* component;
        int first;
        int count;
    };
    std::vector<Entry> entries;
    std::vector<EntryRange> allRhs, constantRhs, varyingRhs, jacobianStamps;
    // Where each conductance stamp of a signal-dependent component without extra unknowns
    // goes; the others restamp through stamp(). Components with no such list: count -1.
    std::vector<EntryRange> signalStamps;
    // The offsets that signalStamps reach, each once; empty when some component restamps
    // through stamp().
    std::vector<int> signalDests;
    // The same split for addVaryingRhsAndStamps: components with both a varying rhs and
    // stamps (rhs range, then stamp range), and those with only one of them.
    std::vector<std::pair<EntryRange, EntryRange>> evaluatedBoth;
    std::vector<EntryRange> varyingRhsOnly, stampsOnly;
    bool fixedRowShared = false;
    void buildEntries();
    // Lists where a k by k stamp of s goes (entry (a, b) to row a, column b) and returns its range.
    EntryRange listStampEntries(const Slot& s);
    void accumulateRhs(const std::vector<EntryRange>& list, scalar* x, scalar* rhs);
    // Adds the present stamps of the signal-dependent components to M.
    void addSignalStamps(scalar* M);
    template <typename T>
    void jacobianStampsInto(scalar* x, T* m);
    void buildPorts();
    // A port term: entry `source` of a component's rhs goes to port `port`
    // times `sign` (1 or -1), or, with `fixedRow` not -1, is the value of that
    // fixed node.
    struct PortTerm {
        int source;
        int port;
        float sign;
        int fixedRow;
    };
    struct PortSlot {
        int slot;
        int first;
        int count;
    };
    std::vector<PortTerm> portTerms;
    std::vector<PortSlot> portSlots;
    std::vector<std::pair<int, int>> portRows;  // +1 at first, -1 at second (or -1: none)
    std::vector<std::pair<int, int>> fixedPorts;  // port, fixed row
};

} // namespace kelm
