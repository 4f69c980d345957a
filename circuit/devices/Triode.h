#pragma once
#include <algorithm>
#include <memory>

#include "circuit/Component.h"
#include "circuit/Stamp.h"
#include "circuit/devices/NKTriodeAnodeCurrent.h"
#include "circuit/devices/PowerLawTriodeGridCurrent.h"
#include "circuit/devices/TriodeCurrent.h"

namespace kelm {

// Vacuum triode between plate, grid and cathode (in that node order), with
// the Koren plate current and a power-law grid current. "Type" names a
// built-in parameter set; the element's own properties win over it.
class Triode : public Component {
public:
    Triode() : jacobian(3, 3) {}
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void setNodes(const NodeIndices& nodes) override;
    bool hasRhs() override { return true; }
    bool isNonlinear() override { return true; }
    scalar* getRhs(scalar* x) override;
    scalar** getJacobian(scalar* x) override;
    scalar* evaluate(scalar* x, scalar**& stamp) override;
    // Two ports: grid to cathode (the grid current) and plate to cathode (the plate current).
    const PortLayout* portLayout() const override { return &layout; }
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

    // The device at the terminal voltages in x (limited in place as evaluate() limits
    // them): the port voltages (V), the plate and grid currents (A) and their slopes (S).
    struct Ports {
        scalar vgk, vpk, ip, ig, dIpdVgk, dIpdVpk, dIgdVgk;
    };
    Ports evaluateAt(scalar* x) {
        // The limiter leaves x where a second call would leave it too; the currents and
        // their derivatives come from one location in each table.
        Ports p;
        limit(x, p.vgk, p.vpk);
        anode->evaluate(p.vgk, p.vpk, p.ip, p.dIpdVgk, p.dIpdVpk);
        grid->evaluate(p.vgk, p.ig, p.dIgdVgk);
        return p;
    }
    // The terminals' indices in x, -1 for ground.
    int plateIndex() const { return plate; }
    int gridIndex() const { return grid_; }
    int cathodeIndex() const { return cathode; }

    TriodeCurrent& anodeCurrent() { return *anode; }
    TriodeCurrent& gridCurrent() { return *grid; }
    scalar storedPlateVoltage() const { return lastPlate; }

private:
    // Clamps the terminal voltages in x as the iteration needs them (the plate at or above
    // the other terminals and within a factor of two of its last value, plate and cathode
    // not below ground), writes the clamped ones back, and gives vgk and vpk.
    void limit(scalar* x, scalar& vgk, scalar& vpk) {
        scalar vp = plateValid ? x[plate] : 0.0f;
        const scalar vg = gridValid ? x[grid_] : 0.0f;
        scalar vk = cathodeValid ? x[cathode] : 0.0f;
        if (vp < 0) vp = 0;
        if (vk < 0) vk = 0;
        vp = std::max(vp, std::max(vg, vk));
        if (lastPlate > 0) vp = std::min(std::max(vp, lastPlate * 0.5f), lastPlate * 2.0f);
        lastPlate = vp;
        if (cathodeValid) x[cathode] = vk;
        if (plateValid) x[plate] = vp;
        vgk = vg - vk;
        vpk = vp - vk;
    }
    // The rhs from the plate and grid currents (A), the stamp from dIp/dVgk, dIp/dVpk and
    // dIg/dVgk (S).
    void fillRhs(scalar ip, scalar ig);
    void fillJacobian(scalar a, scalar b, scalar c);

    std::unique_ptr<NKTriodeAnodeCurrent> anode;
    std::unique_ptr<PowerLawTriodeGridCurrent> grid;
    scalar rhs[3] = {0, 0, 0};
    Stamp jacobian;
    bool plateValid = false, gridValid = false, cathodeValid = false;
    int plate = -1, grid_ = -1, cathode = -1;  // indices in x, -1 for ground
    scalar lastPlate = 0;
    PortLayout layout;
    // The plate-to-cathode voltage of the last port evaluation (V): a step may at most
    // halve or double it.
    double lastVpk = 0;
    double lastVgk = 0;  // the grid-to-cathode voltage of the last port evaluation (V)
};

} // namespace kelm
