#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// A whole amplifier stage as tables: the output node (second) is imposed at
// Vout(V(input)) and the input draws Iin(V(input)) amperes, the one
// nonlinearity left to the solver. Tables on a uniform grid VinMin + i*DeltaV.
class LookupTableAmp : public Component {
public:
    LookupTableAmp();
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }
    bool isNonlinear() override { return useInputCurrent; }
    scalar* getRhs(scalar* x) override;
    scalar** getJacobian(scalar* x) override;
    scalar* evaluate(scalar* x, scalar**& stamp) override;
    void setNodes(const NodeIndices& n) override;
    // What evaluate() gives, as values: the input node's rhs entry (the input current with
    // its sign in the rhs, A), its slope on the Jacobian's diagonal (S) and the output (V).
    // The output's slope by the input voltage (V/V) rides along.
    struct Port {
        scalar current, slope, output, outputSlope;
    };
    Port evaluatePort(scalar* x) { return portAt(inputVoltage(x)); }
    // The input port (and the feedback node's, which draws nothing), and the output as a
    // forced voltage of them.
    const PortLayout* portLayout() const override { return &layout; }
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;
    // The input and output nodes' indices in x, and whether a feedback node enters.
    int inputIndex() const { return inputRow; }
    int outputIndex() const { return (*getNodes())[1]; }
    bool usesFeedback() const { return useFeedback; }
    bool drawsInputCurrent() const { return useInputCurrent; }
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;
    void propertyChanged(const std::string& name, scalar value) override { Element::propertyChanged(name, value); }

private:
    void readTables(const PropertyMap& properties);
    void setVout(const ScalarVectorPtr& v);
    void setIin(const ScalarVectorPtr& v);
    void rebuildDerivative();
    // Keeps the raw views of the tables that evaluate() reads.
    void viewTables();
    scalar interpolate(const ScalarVector& t, scalar v, int i) const;
    // Table t in cell i at `offset` volts into it.
    scalar lerp(const scalar* t, int i, scalar offset) const { return t[i] + (t[i + 1] - t[i]) * offset * inverseDelta; }
    scalar inputVoltage(const scalar* x) const {
        const scalar v = x[inputRow] - vinMin;
        return useFeedback ? v - x[feedbackRow] : v;
    }

    bool useFeedback = false;
    // One entry per node: the circuit takes an rhs entry and a stamp row and column
    // for each, and the feedback node's stay zero.
    Stamp jacobian;
    scalar rhs[3] = {0, 0, 0};
    scalar vinMin = 0, vinMax = 0, inverseDelta = 0, deltaV = 0;
    ScalarVectorPtr vout, iin, iinDerivative;
    // For evaluate(): the three tables' data while they have one length of at least two
    // (cells), else cells is 0; the input and feedback nodes' rows in x.
    const scalar *voutData = nullptr, *iinData = nullptr, *slopeData = nullptr;
    int cells = 0;
    int inputRow = 0, feedbackRow = 0;
    bool useInputCurrent = true;
    PortLayout layout;
    // evaluatePort at the input voltage v less VinMin.
    Port portAt(scalar v);
};

} // namespace kelm
