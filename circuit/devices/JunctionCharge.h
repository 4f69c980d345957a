#pragma once
#include <cmath>

#include "math/Elementary.h"

namespace kelm {

// A charge stored in a device (coulombs), and its current (amperes) by the trapezoidal
// rule from one sample to the next, as the capacitor's. The depletion part of a junction's
// charge is computed here as SPICE does: zero-bias capacitance cj0 (F), built-in potential
// vj (V), grading m, and above fc vj the capacitance continued as a straight line.
class JunctionCharge {
public:
    void setDepletion(double cj0, double vj, double m, double fc) {
        cj = cj0;
        pot = vj;
        grade = m;
        fcv = fc * vj;
        f1 = vj * (1 - std::pow(1 - fc, 1 - m)) / (1 - m);
        f2 = std::pow(1 - fc, 1 + m);
        f3 = 1 - fc * (1 + m);
    }
    bool hasDepletion() const { return cj > 0; }

    // The depletion charge at v (C), and its capacitance c (F).
    double depletion(double v, double& c) const {
        if (cj <= 0) {
            c = 0;
            return 0;
        }
        if (v < fcv) {
            const double arg = 1 - v / pot;
            const double s = power(arg);
            c = cj * s;
            return pot * cj * (1 - arg * s) / (1 - grade);
        }
        c = cj / f2 * (f3 + grade * v / pot);
        return cj * (f1 + (f3 * (v - fcv) + grade / (2 * pot) * (v * v - fcv * fcv)) / f2);
    }

    // The current of charge q at step rate `rate` (twice the sample rate, 1/s); its slope
    // dI/dq is `rate`.
    double current(double q, double rate) const { return rate * (q - lastCharge) - lastCurrent; }
    // The step to the next sample from the charge q of the solution.
    void accept(double q, double rate) {
        lastCurrent = current(q, rate);
        lastCharge = q;
    }
    // Starts from charge q at rest (the operating point: no current).
    void start(double q) {
        lastCharge = q;
        lastCurrent = 0;
    }

private:
    // arg^-grade (arg above 1 - fc): the gradings without a power in closed form.
    double power(double arg) const {
        if (grade == 0.5) return 1 / std::sqrt(arg);
        if (grade == 0) return 1;
        return fastExp(-grade * fastLog(arg));
    }

    double cj = 0, pot = 1, grade = 0.5, fcv = 0.5, f1 = 0, f2 = 1, f3 = 0;
    double lastCharge = 0, lastCurrent = 0;
};

} // namespace kelm
