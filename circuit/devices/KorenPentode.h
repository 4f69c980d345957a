#pragma once
#include <cmath>

#include "math/Elementary.h"

namespace kelm {

// Norman Koren's pentode plate and screen currents with their slopes, all from one pass in
// double: the same law as NKPentodeAnodeCurrent and NKPentodeScreenCurrent, which compute
// each number on its own. Voltages against the cathode in volts, currents in amperes.
//
//   E1 = (Vsk / Kp) log(1 + e),  e = exp(Kp (1/mu + Vgk/Vsk))
//   Ip = 2 atan(Vpk / Kvb) E1^Ex / Kg1               (0 with the screen at the cathode)
//   Is = (Vsk/mu + Vgk)^1.5 / Kg2                    (0 where that base is not positive)
//
// The slopes are the law's own derivatives, so that the port iteration takes Newton's steps.
// (NKPentodeAnodeCurrent, for the general iteration, scales the slopes by Vgk and by Vsk with
// Ip at Vpk and Vsk exchanged; the currents are the same.)
class KorenPentode {
public:
    struct Currents {
        double ip = 0, ipVgk = 0, ipVpk = 0, ipVsk = 0;  // Ip and its slopes (A, S)
        double is = 0, isVgk = 0, isVsk = 0;             // Is and its slopes (Is does not follow Vpk)
    };

    void setParameters(double kp, double kvb, double mu, double ex, double kg1, double kg2) {
        Kp = kp;
        invKp = 1 / kp;
        invKvb = 1 / kvb;
        invMu = 1 / mu;
        Ex = ex;
        twoOverKg1 = 2 / kg1;
        invKg2 = 1 / kg2;
    }

    void evaluate(double vgk, double vpk, double vsk, Currents& c) const {
        c = Currents();
        const double base = vsk * invMu + vgk;
        if (!(base <= 0)) {
            const double root = std::sqrt(base);
            c.is = base * root * invKg2;
            c.isVgk = 1.5 * root * invKg2;
            c.isVsk = c.isVgk * invMu;
        }
        if (!(vsk > 0)) return;
        double share, L;
        const double E1 = firstGrid(vgk, vsk, share, L);
        const double x = vpk * invKvb;
        const double power = fastPow(E1, Ex) * twoOverKg1;
        c.ip = fastAtan(x) * power;
        c.ipVpk = power * invKvb / (x * x + 1);
        if (!(E1 > 0)) return;  // e underflowed far below cut-off: no current, no slope
        // d(E1^Ex) = Ex Ip / E1 dE1, with dE1/dVgk = share and dE1/dVsk = L / Kp - share Vgk / Vsk.
        const double scale = Ex * c.ip / E1;
        c.ipVgk = scale * share;
        c.ipVsk = (L * invKp - vgk * share / vsk) * scale;
    }

private:
    // E1 at Vgk and a screen voltage vs, with L = log(1 + e) and share = e / (1 + e). Above
    // z = 37, e exceeds 2^53: then 1 + e rounds to e, L to z and share to 1, and neither e nor
    // its logarithm need be computed (in the plate's working range they seldom are). Where e
    // overflows, it still does, and the numbers are as the separate models give them.
    double firstGrid(double vgk, double vs, double& share, double& L) const {
        const double z = Kp * (invMu + vgk / vs);
        if (z > 37 && z < 709) {
            L = z;
            share = 1;
        } else {
            const double e = fastExp(z);
            L = fastLog1p(e);
            share = e / (1 + e);
        }
        return vs * invKp * L;
    }

    double Kp = 1, invKp = 1, invKvb = 1, invMu = 1, Ex = 1, twoOverKg1 = 2, invKg2 = 1;
};

} // namespace kelm
