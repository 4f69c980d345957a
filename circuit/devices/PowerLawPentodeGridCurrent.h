#pragma once
#include "circuit/devices/PentodeCurrent.h"
#include "circuit/devices/PowerLawGridCurrent.h"

namespace kelm {

// The power-law grid current as a pentode current (depends on Vgk only).
class PowerLawPentodeGridCurrent : public PentodeCurrent {
public:
    PowerLawPentodeGridCurrent() : derivativeVector(std::make_shared<ScalarVector>(3, 0.0f)) {}
    void init(const PropertyMap& properties) override { grid.init(properties); }
    [[noreturn]] void setProperty() override;
    scalar current(scalar vgk, scalar, scalar) override { return grid.current(vgk); }
    const ScalarVectorPtr& derivatives(scalar vgk, scalar, scalar) override {
        (*derivativeVector)[0] = grid.dIdV(vgk);
        return derivativeVector;
    }
    bool dependsOnVpk() const override { return false; }
    bool dependsOnVsk() const override { return false; }
    scalar dIdVgk(scalar vgk, scalar, scalar) override { return grid.dIdV(vgk); }
    scalar dIdVpk(scalar, scalar, scalar) override { return 0.0f; }
    scalar dIdVsk(scalar, scalar, scalar) override { return 0.0f; }
    // current() and dIdVgk() from one location in the tables.
    void evaluate(scalar vgk, scalar& current, scalar& slope) { grid.evaluate(vgk, current, slope); }

private:
    PowerLawGridCurrent grid;
    ScalarVectorPtr derivativeVector;
};

} // namespace kelm
