#pragma once
#include <algorithm>
#include <cmath>

#include "math/Elementary.h"

namespace kelm {

// The pn junction as SPICE's device models use it, evaluated in double: the diode law with
// its reverse tail, and the limits that SPICE puts on a Newton step of a junction's or a
// field-effect transistor's voltages. Voltages in volts, currents in amperes.
class Junction {
public:
    // The conductance (S) that every junction has in parallel, so that no node hangs on
    // junctions alone.
    static constexpr double gmin = 1e-12;

    // kT/q at the models' temperature, 27 degrees C (V).
    static double thermalVoltage() { return 1.38064852e-23 * 300.15 / 1.6021766208e-19; }

    // Is (exp(v / nvt) - 1) and its slope g, with SPICE's cubic tail towards -Is below
    // -3 nvt. Above v = 80 nvt the exponential is continued along its tangent, so that no
    // voltage gives an infinite current.
    static double current(double v, double is, double nvt, double& g) {
        if (v >= -3 * nvt) {
            const double x = v / nvt;
            if (x > kMaxExponent) {
                const double e = fastExp(kMaxExponent);
                g = is * e / nvt;
                return is * (e * (1 + x - kMaxExponent) - 1);
            }
            const double e = fastExp(x);
            g = is * e / nvt;
            return is * (e - 1);
        }
        double a = 3 * nvt / (v * 2.718281828459045);
        a = a * a * a;
        g = is * 3 * a / v;
        return -is * (1 + a);
    }

    // The voltage above which a junction's step is limited (pnjlim's critical voltage).
    static double criticalVoltage(double is, double nvt) { return nvt * std::log(nvt / (std::sqrt(2.0) * is)); }

    // SPICE's pnjlim: a step to vnew from vold, where the junction conducts, is shortened to
    // one that changes the current about as the straight line of the last linearisation
    // would; a large step into reverse bias is taken in doubling stages.
    static double limit(double vnew, double vold, double nvt, double vcrit) {
        if (vnew > vcrit && std::fabs(vnew - vold) > 2 * nvt) {
            if (vold > 0) {
                const double arg = 1 + (vnew - vold) / nvt;
                return arg > 0 ? vold + nvt * std::log(arg) : vcrit;
            }
            return nvt * std::log(vnew / nvt);
        }
        if (vnew < 0) {
            const double floor = vold > 0 ? -vold - 1 : 2 * vold - 1;
            if (vnew < floor) return floor;
        }
        return vnew;
    }

    // SPICE's fetlim: the step of a gate voltage against the threshold vto, held near the
    // threshold where the channel turns on or off.
    static double fetLimit(double vnew, double vold, double vto) {
        const double vtsthi = std::fabs(2 * (vold - vto)) + 2;
        const double vtstlo = std::fabs(vold - vto) + 1;
        const double vtox = vto + 3.5;
        const double delv = vnew - vold;
        if (vold >= vto) {
            if (vold >= vtox) {
                if (delv <= 0) {
                    if (vnew >= vtox) {
                        if (-delv > vtstlo) vnew = vold - vtstlo;
                    } else {
                        vnew = std::max(vnew, vto + 2);
                    }
                } else if (delv >= vtsthi) {
                    vnew = vold + vtsthi;
                }
            } else {
                vnew = delv <= 0 ? std::max(vnew, vto - 0.5) : std::min(vnew, vto + 4);
            }
        } else if (delv <= 0) {
            if (-delv > vtsthi) vnew = vold - vtsthi;
        } else {
            const double vtemp = vto + 0.5;
            if (vnew <= vtemp) {
                if (delv > vtstlo) vnew = vold + vtstlo;
            } else {
                vnew = vtemp;
            }
        }
        return vnew;
    }

    // SPICE's limvds: the step of a drain-source voltage.
    static double drainSourceLimit(double vnew, double vold) {
        if (vold >= 3.5) {
            if (vnew > vold) return std::min(vnew, 3 * vold + 2);
            if (vnew < 3.5) return std::max(vnew, 2.0);
            return vnew;
        }
        return vnew > vold ? std::min(vnew, 4.0) : std::max(vnew, -0.5);
    }

private:
    static constexpr double kMaxExponent = 80;
};

} // namespace kelm
