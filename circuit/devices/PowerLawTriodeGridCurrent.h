#pragma once
#include "circuit/devices/PowerLawGridCurrent.h"
#include "circuit/devices/TriodeCurrent.h"

namespace kelm {

// The power-law grid current as a triode current (independent of Vpk).
class PowerLawTriodeGridCurrent : public TriodeCurrent {
public:
    PowerLawTriodeGridCurrent() : derivativeVector(std::make_shared<ScalarVector>(2, 0.0f)) {}
    void init(const PropertyMap& properties) override { grid.init(properties); }
    [[noreturn]] void setProperty() override;
    scalar current(scalar vgk, scalar) override { return grid.current(vgk); }
    const ScalarVectorPtr& derivatives(scalar vgk, scalar) override {
        (*derivativeVector)[0] = grid.dIdV(vgk);
        return derivativeVector;
    }
    bool dependsOnVgk() const override { return true; }
    bool dependsOnVpk() const override { return false; }
    scalar dIdVgk(scalar vgk, scalar) override { return grid.dIdV(vgk); }
    scalar dIdVpk(scalar, scalar) override { return 0.0f; }
    // current() and dIdVgk() from one location in the tables.
    void evaluate(scalar vgk, scalar& current, scalar& slope) { grid.evaluate(vgk, current, slope); }
    void evaluateExact(scalar vgk, scalar& current, scalar& slope) { grid.evaluateExact(vgk, current, slope); }
    double knee() const { return grid.knee(); }

private:
    PowerLawGridCurrent grid;
    ScalarVectorPtr derivativeVector;
};

} // namespace kelm
