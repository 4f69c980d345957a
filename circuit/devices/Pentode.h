#pragma once
#include <memory>

#include "circuit/Component.h"
#include "circuit/Stamp.h"
#include "circuit/devices/KorenPentode.h"
#include "circuit/devices/NKPentodeAnodeCurrent.h"
#include "circuit/devices/NKPentodeScreenCurrent.h"
#include "circuit/devices/PowerLawPentodeGridCurrent.h"

namespace kelm {

// Vacuum pentode between plate, screen, grid and cathode (in that node
// order). Every number handed to the solver is checked: NaN or infinity throws.
class Pentode : public Component {
public:
    Pentode() : jacobian(4, 4) {}
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void setNodes(const NodeIndices& nodes) override;
    bool hasRhs() override { return true; }
    bool isNonlinear() override { return true; }
    scalar* getRhs(scalar* x) override;
    scalar** getJacobian(scalar* x) override;
    // Three ports against the cathode: grid, plate and screen, with their currents.
    const PortLayout* portLayout() const override { return &layout; }
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

private:
    void limit(scalar* x);
    void check(scalar value, const char* what) const;
    // Throws naming the first of the port currents i and slopes di that is not finite.
    void checkPorts(const double* i, const double* di) const;

    std::unique_ptr<PowerLawPentodeGridCurrent> grid;
    std::unique_ptr<NKPentodeAnodeCurrent> anode;
    std::unique_ptr<NKPentodeScreenCurrent> screen;
    KorenPentode law;  // the plate and screen currents of evaluatePorts
    scalar rhs[4] = {0, 0, 0, 0};
    Stamp jacobian;
    bool valid[4] = {false, false, false, false};
    scalar Vp = 0, Vs = 0, Vg = 0, Vk = 0;
    scalar lastPlate = 0;
    PortLayout layout;
    double lastVpk = 0;  // the plate-to-cathode voltage of the last port evaluation (V)
};

} // namespace kelm
