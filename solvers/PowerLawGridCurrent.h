#pragma once
#include <vector>

#include "engine/PropertyMap.h"
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
    // current() and dIdV() from one location in the tables.
    void evaluate(scalar vgk, scalar& current, scalar& slope);

private:
    void buildTables();

    double Vc = 0, Igc = 0, N = 0;
    float VgkMax = 8.0f, VgkMin = -8.0f, deltaVgk = 0.01f, inverseDeltaVgk = 100.0f;
    bool direct = false;
    std::vector<float> currentTable, derivativeTable;
};

} // namespace kelm
