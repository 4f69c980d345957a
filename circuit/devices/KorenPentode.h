#pragma once
#include <cmath>

#include "math/Elementary.h"
#include "math/HermiteTable.h"

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
        logKp = std::log(kp);
        invKvb = 1 / kvb;
        invMu = 1 / mu;
        Ex = ex;
        twoOverKg1 = 2 / kg1;
        invKg2 = 1 / kg2;
        softplusLogTable();  // built here, never on the audio thread
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
        // log E1 = log(Vsk / Kp) + W(z), W(z) = log log(1 + e^z), z = Kp (1/mu + Vgk/Vsk):
        // E1^Ex from one exponential, and d log E1 = W'(z) dz + dVsk / Vsk.
        const double invVs = 1 / vsk;
        const double z = Kp * (invMu + vgk * invVs);
        double slope;
        const double w = softplusLog(z, slope);
        const double x = vpk * invKvb;
        const double power = fastExp(Ex * (fastLog(vsk) - logKp + w)) * twoOverKg1;
        c.ip = fastAtan(x) * power;
        c.ipVpk = power * invKvb / (x * x + 1);
        const double scale = Ex * c.ip * slope * Kp * invVs;
        c.ipVgk = scale;
        c.ipVsk = Ex * c.ip * invVs - scale * vgk * invVs;
    }

    // W(z) = log log(1 + e^z) and its slope W'(z) = e^z / ((1 + e^z) log(1 + e^z)), from a
    // table of cubic pieces where it bends (W within 4e-10 of the direct form, W' within 1e-7
    // of its size) and from its asymptotes beyond: W = z below z = -40 (where log(1 + e^z)
    // is e^z to 4e-18), log z above 400.
    static double softplusLog(double z, double& slope) {
        double value;
        if (softplusLogTable().lookup(-z, &value, &slope)) {
            slope = -slope;
            return value;
        }
        if (z < 0) {
            slope = 1;
            return z;
        }
        slope = 1 / z;
        return fastLog(z);
    }
    // The same law computed directly (what the table holds).
    static void softplusLogExact(double z, double& value, double& slope);

private:
    // Over u = -z: a coarse grid for z from 400 down to 40, a fine one from 40 to -40.
    static const HermiteTable<1>& softplusLogTable();

    double Kp = 1, logKp = 0, invKvb = 1, invMu = 1, Ex = 1, twoOverKg1 = 2, invKg2 = 1;
};

} // namespace kelm
