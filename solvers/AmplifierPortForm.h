#pragma once
#include <cmath>

#include "circuit/devices/LookupTableAmp.h"
#include "circuit/Resistor.h"
#include "math/SmallLoops.h"
#include "engine/Types.h"

namespace kelm {

class MNAContext;

// The Newton step of a circuit whose only nonlinear element is a LookupTableAmp, taken
// on the one unknown it depends on: the voltage of its input node.
//
// The amplifier adds r(v) to the input node's row g of the rhs (its input current) and
// imposes its output node, a forced unknown that no solved row reads. With sLin = A_ss^-1
// (F0 - A_su u) the solution without input current and w = A_ss^-1 e_g, linearising r at
// the point x' of an iteration, r' + r'' (v - x'_g), the new point is
//   q = (r' + r'' (sLin_g - x'_g)) / (1 - r'' w_g),   s = sLin + w q,
// the Newton step of the whole circuit to rounding. One conductance whose value follows
// the signal from sample to sample (a SourceAdmittance) may change A: A_ss^-1 then
// follows it by a rank-one update per sample from the inverse of A without it, instead of
// a new inverse.
class AmplifierPortForm {
public:
    static constexpr int maxUnknowns = 8;

    // Prepares the form for the n by n column-major A (float) whose first m unknowns are
    // solved and the rest forced. False, and not usable, unless the circuit's only
    // nonlinear component is a LookupTableAmp without feedback whose input is solved and
    // whose output no solved row reads, any signal-dependent stamp is a single
    // conductance, and A's solved block is regular.
    bool build(MNAContext& context, const scalar* A, int n, int m);
    bool usable() const { return amplifier != nullptr; }
    void clear() { amplifier = nullptr; }
    int outputIndex() const { return output; }

    // Per sample: sLin and w (see above) from the constant rhs F0, whose rows from M on
    // hold the forced values, and the present A (with the conductance's present value).
    template <int N, int M>
    void beginSample(const scalar* F0, const scalar* A, double* sLin, double* w) const {
        double y[M];
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            double v = loadAlone(F0 + i);
            KELM_UNROLL
            for (int k = M; k < N; ++k) v -= static_cast<double>(A[k * N + i]) * loadAlone(F0 + k);
            y[i] = v;
        }
        double y0[M];
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            double v = 0;
            KELM_UNROLL
            for (int j = 0; j < M; ++j) v += inverse[j * maxUnknowns + i] * y[j];
            y0[i] = v;
        }
        if (!conductance) {
            KELM_UNROLL
            for (int i = 0; i < M; ++i) {
                sLin[i] = y0[i];
                w[i] = column[i];
            }
            return;
        }
        // Sherman-Morrison: (A0 + delta d d^T)^-1 = A0^-1 - alpha h d^T A0^-1, h = A0^-1 d.
        const double delta = conductance->getAdmittance();
        const double alpha = delta / (1 + delta * hd);
        double dy = 0;
        KELM_UNROLL
        for (int i = 0; i < M; ++i) dy += d[i] * y0[i];
        const double fy = alpha * dy, fw = alpha * hColumn;
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            sLin[i] = y0[i] - h[i] * fy;
            w[i] = column[i] - h[i] * fw;
        }
    }

    // Per iteration: evaluates the amplifier at X and writes to s the solved unknowns that
    // the Newton step from there reaches, and to out its output at X. False, with s
    // unwritten, when the step's system is singular.
    template <int M>
    bool newtonPoint(scalar* X, const double* sLin, const double* w, double* s, scalar& out) const {
        const LookupTableAmp::Port p = amplifier->evaluatePort(X);
        out = p.output;
        // The slope enters the Jacobian, so the rhs changes by minus the slope.
        const double slope = p.slope;
        const double denominator = 1 + slope * w[input];
        if (!(std::fabs(denominator) > 0) || !std::isfinite(denominator)) return false;
        const double q = (p.current - slope * (sLin[input] - static_cast<double>(X[input]))) / denominator;
        KELM_UNROLL
        for (int i = 0; i < M; ++i) s[i] = sLin[i] + w[i] * q;
        return true;
    }

private:
    LookupTableAmp* amplifier = nullptr;
    int input = 0, output = 0;
    // A0_ss^-1 (column-major, columns maxUnknowns apart) and its column at the input.
    double inverse[maxUnknowns * maxUnknowns];
    double column[maxUnknowns];
    // The signal-dependent conductance (left out of A0), d (its stamp's pattern on the solved
    // rows), h = A0^-1 d, d.h and d.(A0^-1 e_g).
    const Resistor* conductance = nullptr;
    double d[maxUnknowns], h[maxUnknowns];
    double hd = 0, hColumn = 0;
};

} // namespace kelm
