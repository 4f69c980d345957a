#include "plugin/core/TableGenerator.h"

#include <cmath>
#include <functional>

#include "circuit/devices/NKTriodeAnodeCurrent.h"
#include "circuit/devices/PowerLawTriodeGridCurrent.h"
#include "circuit/devices/TubeTypes.h"

namespace kelm {

namespace {

const double R = 100000, B = 155, Rk = 1200, Rg = 33000;

// Root of an increasing function between lo and hi, by bisection to the last bit.
double increasingRoot(const std::function<double(double)>& f, double lo, double hi) {
    for (int i = 0; i < 200 && hi - lo > 1e-13 * std::max(1.0, std::fabs(hi)); ++i) {
        const double mid = 0.5 * (lo + hi);
        if (f(mid) > 0)
            hi = mid;
        else
            lo = mid;
    }
    return 0.5 * (lo + hi);
}

struct Tube {
    NKTriodeAnodeCurrent anode;
    PowerLawTriodeGridCurrent grid;
    Tube() {
        PropertyMap p;
        for (auto& e : TubeTypes::triodes().at("12AX7")()) p.insert(e);
        grid.init(p);
        anode.init(p);
    }
    double ip(double vgk, double vpk) { return anode.current(static_cast<float>(vgk), static_cast<float>(vpk)); }
    double dip(double vgk, double vpk) { return anode.dIdVpk(static_cast<float>(vgk), static_cast<float>(vpk)); }
    double ig(double vgk) { return grid.current(static_cast<float>(vgk), 0.0f); }
    // Plate voltage of a stage with plate resistor R to B, for a given grid and cathode voltage.
    double plate(double vg, double vk) {
        return increasingRoot([&](double vp) { return vp - B + R * ip(vg - vk, vp - vk); }, vk - 1, B + 1);
    }
};

} // namespace

TableGenerator::Tables TableGenerator::generate() {
    Tube tube;
    Tables t;
    // Second stage: no grid resistor, cathode resistor without bypass.
    const int secondPoints = 9001;
    t.secondStageCurve.resize(secondPoints);
    t.secondStageGridCurrent.resize(secondPoints);
    t.gridResistance.resize(secondPoints);
    for (int i = 0; i < secondPoints; ++i) {
        const double vin = -8 + i * 0.002;
        double vp = 0;
        const double vk = increasingRoot(
            [&](double k) {
                vp = tube.plate(vin, k);
                return k - Rk * (tube.ip(vin - k, vp - k) + tube.ig(vin - k));
            },
            0, 60);
        vp = tube.plate(vin, vk);
        const double iin = tube.ig(vin - vk);
        t.secondStageCurve[i] = static_cast<float>(vp);
        t.secondStageGridCurrent[i] = static_cast<float>(iin);
        t.gridResistance[i] = static_cast<float>(iin > 1e-9 ? vin / iin : 1e10);
        if (i == 4000) {
            t.quiescentCathode = vk;
            t.quiescentPlate = vp;
        }
    }
    const double vk0 = t.quiescentCathode;
    // First stage: cathode held at Vk0 by its bypass capacitor, grid through 33k.
    const int firstPoints = 3001;
    t.firstStageCurve.resize(firstPoints);
    for (int i = 0; i < firstPoints; ++i) {
        const double vin = -2 + i * 0.002;
        const double vg =
            increasingRoot([&](double g) { return tube.ig(g - vk0) - (vin - g) / Rg; }, vin - 100, vin);
        t.firstStageCurve[i] = static_cast<float>(tube.plate(vg, vk0));
    }
    // Source admittance of the first stage by its plate voltage.
    const int platePoints = 104;
    t.firstStageAdmittance.resize(platePoints);
    t.plateResistance.resize(platePoints);
    for (int i = 0; i < platePoints; ++i) {
        const double vp = 52 + i;
        const double target = (B - vp) / R;
        const double vgk = increasingRoot([&](double g) { return tube.ip(g, vp - vk0) - target; }, -8, 4);
        const double admittance = 1 / R + tube.dip(vgk, vp - vk0);
        t.firstStageAdmittance[i] = static_cast<float>(admittance);
        t.plateResistance[i] = static_cast<float>(1 / admittance);
    }
    return t;
}

} // namespace kelm
