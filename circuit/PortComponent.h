#pragma once
#include <vector>

#include "circuit/Component.h"
#include "circuit/MNAEventListener.h"
#include "circuit/Stamp.h"

namespace kelm {

// A nonlinear device written on its ports alone. From its PortLayout and evaluatePorts
// it gives the general Newton iteration what every component gives (rhs, Jacobian stamp,
// the next sample's memory), so that a new device needs only its layout, its evaluation
// and, where it has internal nodes, their names and its linear stamp.
//
// Where the device limits a step, the rhs is its current at the limited point carried
// linearly to the point asked for (as SPICE's companion models are), so that the Newton
// step solves the circuit linearised at the limited point.
class PortComponent : public Component, public MNAEventListener {
public:
    PortComponent() = default;
    bool hasRhs() override { return true; }
    bool isNonlinear() override { return true; }
    scalar* getRhs(scalar* x) override;
    scalar** getJacobian(scalar* x) override;
    scalar* evaluate(scalar* x, scalar**& stamp) override;
    void setNodes(const NodeIndices& n) override;
    const PortLayout* portLayout() const override { return &layout; }
    void sampleRateChanged(scalar) override {}
    void nextSample() override;

    // The port voltages of the solution x (V).
    void portVoltages(const scalar* x, double* v) const;

protected:
    // Adds a node inside the device, named after it, behind its other nodes; returns its
    // terminal number. Call in init, after initBase.
    int addInternalNode(const std::string& suffix);
    // Call at the end of init, once the layout is complete: sizes the stamps and makes the
    // device a listener of the context.
    void finishPorts();

    // Forgets the last evaluation (a property changed the device's equations).
    void invalidateEvaluation() { cached = false; }

    PortLayout layout;

private:
    void evaluateAt(const scalar* x);
    double terminal(const scalar* x, int t) const {
        if (t < 0) return 0.0;
        const int row = (*nodes)[t];
        return row < 0 ? 0.0 : static_cast<double>(x[row]);
    }

    Stamp jacobian;
    std::vector<scalar> rhs;
    // The port voltages last asked for: the rhs and the stamp at the same point come
    // from one evaluation (a second one would limit the step a second time).
    double lastAsked[maxDevicePorts] = {};
    bool cached = false;
};

} // namespace kelm
