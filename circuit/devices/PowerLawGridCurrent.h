#pragma once
#include <vector>

#include "engine/PropertyMap.h"
#include "math/TableIndex.h"
#include "engine/Types.h"

namespace kelm {

// Grid current Igc * (Vgk + Vc)^N in amperes, from a table or directly.
class PowerLawGridCurrent {
public:
    virtual ~PowerLawGridCurrent() {}
    virtual void init(const PropertyMap& properties);
    [[noreturn]] virtual void setProperty();
    virtual scalar current(scalar vgk);
    virtual scalar dIdV(scalar vgk);
    // Vc (V): the grid starts to draw current at a grid-to-cathode voltage of -Vc.
    double knee() const { return -Vc; }
    // current() and dIdV() from one location in the tables.
    void evaluate(scalar vgk, scalar& current, scalar& slope) { evaluateWith<false>(vgk, current, slope); }
    // evaluate() with the slope of the table's own interpolation (the cell's secant).
    void evaluateExact(scalar vgk, scalar& current, scalar& slope) { evaluateWith<true>(vgk, current, slope); }

private:
    template <bool secant>
    void evaluateWith(scalar vgk, scalar& current, scalar& slope) {
        const float v = static_cast<float>(vgk + Vc);
        if (v < 0) {
            // Below the knee the grid draws nothing, in the tables and in the model.
            current = slope = 0.0f;
            return;
        }
        if (direct || v >= VgkMax) {
            evaluateOutside(vgk, current, slope);
            return;
        }
        const int k = tableIndex(v * inverseDeltaVgk, 0, static_cast<int>(currentTable.size()) - 2);
        const float offset = v - k * deltaVgk;
        const float difference = currentTable[k + 1] - currentTable[k];
        current = currentTable[k] + difference * offset * inverseDeltaVgk;
        slope = secant ? difference * inverseDeltaVgk
                       : derivativeTable[k] + (derivativeTable[k + 1] - derivativeTable[k]) * offset * inverseDeltaVgk;
    }
    void buildTables();
    // evaluate() where the tables do not reach (or are not used).
    void evaluateOutside(scalar vgk, scalar& current, scalar& slope);

    double Vc = 0, Igc = 0, N = 0;
    float VgkMax = 8.0f, VgkMin = -8.0f, deltaVgk = 0.01f, inverseDeltaVgk = 100.0f;
    bool direct = false;
    std::vector<float> currentTable, derivativeTable;
};

} // namespace kelm
