#pragma once
#include <memory>

#include "circuit/Component.h"
#include "circuit/Stamp.h"
#include "solvers/NKTriodeAnodeCurrent.h"
#include "solvers/PowerLawTriodeGridCurrent.h"
#include "solvers/TriodeCurrent.h"

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

    TriodeCurrent& anodeCurrent() { return *anode; }
    TriodeCurrent& gridCurrent() { return *grid; }
    scalar storedPlateVoltage() const { return lastPlate; }

private:
    void limit(scalar* x);
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
    scalar Vp = 0, Vg = 0, Vk = 0;
    scalar lastPlate = 0;
};

} // namespace kelm
