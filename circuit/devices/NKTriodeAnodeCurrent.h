#pragma once
#include <algorithm>
#include <memory>
#include <vector>

#include "math/TableIndex.h"

#include "circuit/devices/TriodeCurrent.h"

namespace kelm {

// Norman Koren's triode plate current, from bilinear tables or computed directly
// ("DoNotInterpolate").
class NKTriodeAnodeCurrent : public TriodeCurrent {
public:
    NKTriodeAnodeCurrent();
    void init(const PropertyMap& properties) override;
    [[noreturn]] void setProperty() override;
    scalar current(scalar vgk, scalar vpk) override;
    const ScalarVectorPtr& derivatives(scalar vgk, scalar vpk) override;
    bool dependsOnVgk() const override { return true; }
    bool dependsOnVpk() const override { return true; }
    scalar dIdVgk(scalar vgk, scalar vpk) override;
    scalar dIdVpk(scalar vgk, scalar vpk) override;
    // current(), dIdVgk() and dIdVpk() from one location of the grid cell.
    void evaluate(scalar vgk, scalar vpk, scalar& current, scalar& dVgk, scalar& dVpk) {
        evaluateWith<false>(vgk, vpk, current, dVgk, dVpk);
    }
    // evaluate() with the derivatives of the current itself: from the tables, the slopes of
    // the bilinear surface in the cell (exact for it, so that Newton's method converges
    // on it as fast as the model allows), rather than the derivative tables.
    void evaluateExact(scalar vgk, scalar vpk, scalar& current, scalar& dVgk, scalar& dVpk) {
        evaluateWith<true>(vgk, vpk, current, dVgk, dVpk);
    }

    bool isDirect() const { return direct; }
    int rowCount() const { return rows; }
    int columnCount() const { return cols; }
    // The model evaluated directly, whatever the mode (for table checks).
    scalar directCurrent(scalar vgk, scalar vpk);

private:
    template <bool ownSlopes>
    void evaluateWith(scalar vgk, scalar vpk, scalar& current, scalar& dVgk, scalar& dVpk) {
        if (direct) {
            evaluateDirect(vgk, vpk, current, dVgk, dVpk);
            return;
        }
        if (vpk <= 0 || VgkMin > vgk) {
            current = dVgk = dVpk = 0.0f;
            return;
        }
        if constexpr (ownSlopes) {
            const Cell c = locate(std::min(vgk, VgkMax), vpk);
            const float* r0 = currentTable + c.at;
            const float* r1 = r0 + cols;
            const float wp0 = c.p0 + deltaVpk - vpk, wp1 = vpk - c.p0;
            current = bilinear(r0, r1, c.wg0, c.wg1, wp0, wp1);
            dVpk = (c.wg0 * (r0[1] - r0[0]) + c.wg1 * (r1[1] - r1[0])) * inverseArea;
            dVgk = ((r1[0] - r0[0]) * wp0 + (r1[1] - r0[1]) * wp1) * inverseArea;
        } else {
            // current() reads the cell at vpk, the derivatives at vpk held to VpMax: the same
            // cell either way (both indices end at the last one), other weights above VpMax.
            const float clamped = std::min(vpk, VpMax);
            const Cell c = locate(std::min(vgk, VgkMax), clamped);
            current = interpolate(currentTable, c, vpk);
            dVgk = interpolate(dVgkTable, c, clamped);
            dVpk = interpolate(dVpkTable, c, clamped);
        }
        // Above VgkMax the current goes on along its slope there.
        if (vgk > VgkMax) current += dVgk * (vgk - VgkMax);
    }
    // The three tables of one parameter set, shared by every tube that has it.
    struct Tables {
        std::vector<float> current, dVgk, dVpk;
    };
    void buildTables();
    std::shared_ptr<const Tables> computeTables() const;
    void evaluateDirect(scalar vgk, scalar vpk, scalar& current, scalar& dVgk, scalar& dVpk);
    scalar lookup(const float* table, scalar vgk, scalar vpk, bool clampPlate) const;
    // A cell of the grid: its first entry, the plate voltage of its lower side, and the
    // weights along Vgk of its two rows.
    struct Cell {
        size_t at;
        float p0, wg0, wg1;
    };
    Cell locate(float Vg, float vpk) const {
        const int j = tableIndex(vpk * inverseDeltaVpk, 0, cols - 2);
        const int i = tableIndex((Vg - VgkMin) * inverseDeltaVgk, 0, rows - 2);
        const float g0 = i * deltaVgk + VgkMin;
        const float g1 = g0 + deltaVgk;
        return {static_cast<size_t>(i) * cols + j, j * deltaVpk, g1 - Vg, Vg - g0};
    }
    // A table's value in cell c at plate voltage vpk.
    scalar interpolate(const float* T, const Cell& c, float vpk) const {
        return bilinear(T + c.at, T + c.at + cols, c.wg0, c.wg1, c.p0 + deltaVpk - vpk, vpk - c.p0);
    }
    // Bilinear interpolation in the cell whose rows start at r0 and r1, by the weights
    // along Vgk (wg0, wg1) and Vpk (wp0, wp1), which sum to the cell's sides.
    scalar bilinear(const float* r0, const float* r1, float wg0, float wg1, float wp0, float wp1) const {
        return ((wg0 * r0[0] + wg1 * r1[0]) * wp0 + r0[1] * wg0 * wp1 + r1[1] * wg1 * wp1) * inverseArea;
    }

    double Vct = 0, Kp = 0, Kvb = 0, mu = 0, Ex = 0, Kg = 0;
    float VgkMax = 0, VgkMin = 0, VpMax = 0;
    std::shared_ptr<const Tables> tables;
    const float* currentTable = nullptr;
    const float* dVgkTable = nullptr;
    const float* dVpkTable = nullptr;
    int rows = 0, cols = 0;
    bool direct = false;
    float deltaVpk = 10.0f, inverseDeltaVpk = 0.1f;
    float deltaVgk = 0.2f, inverseDeltaVgk = 5.0f;
    float inverseArea = 0.5f;  // 1 / (deltaVgk deltaVpk)
    ScalarVectorPtr derivativeVector;
};

} // namespace kelm
