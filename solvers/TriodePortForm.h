#pragma once
#include <cmath>

#include "engine/Types.h"
#include "math/SmallLoops.h"
#include "circuit/devices/Triode.h"

namespace kelm {

class MNAContext;

// The Newton step of a circuit whose only nonlinear element is one triode, taken on
// the triode's two port voltages (vgk, vpk) instead of on all solved unknowns.
//
// With the solved unknowns s, the forced ones u and the port voltages v = Es s + Eu u,
// the circuit reads A_ss s + A_su u = F0 - T c(v), where c = (ip, ig) are the tube's
// currents and T takes them to the rows of its terminals. The linear part is inverted
// once per change of A: N = A_ss^-1 T and K = Es N. Per sample, sLin = A_ss^-1 (F0 -
// A_su u) is the solution without tube current and p = Es sLin + Eu u its port
// voltages. Linearising c at the point v' of an iteration, c' + G (v - v'), the new
// point of the whole circuit follows from a 2 by 2 system:
//   (I + G K) z = c' + G (p - v'),   s = sLin - N z.
// That is the step of the whole circuit's Jacobian (A plus the triode's stamp) to
// rounding, with the linear part's elimination done ahead of time.
class TriodePortForm {
public:
    static constexpr int maxUnknowns = 8;

    // Prepares the form for the n by n column-major A (float, as the solver keeps it)
    // whose first m unknowns are solved and the rest forced. False, and not usable,
    // unless the circuit's only nonlinear component is a triode, nothing else changes
    // within a sample, and A's solved block is regular.
    bool build(MNAContext& context, const scalar* A, int n, int m);
    bool usable() const { return triode != nullptr; }
    void clear() { triode = nullptr; }

    // Per sample: sLin and p (see above) from the constant rhs F0, whose rows from M on
    // hold the forced values.
    template <int N, int M>
    void beginSample(const scalar* F0, double* sLin, double* p) const {
        // F0 was just written entry by entry: read it so too (see loadAlone).
        double f[N];
        KELM_UNROLL
        for (int j = 0; j < N; ++j) f[j] = loadAlone(F0 + j);
        // p straight from F0, summed in pairs: it starts the first iteration's chain.
        p[0] = pairSum<0, N>(direct[0], f);
        p[1] = pairSum<0, N>(direct[1], f);
        double r[M];
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            double v = f[i];
            KELM_UNROLL
            for (int k = M; k < N; ++k) v -= coupled[(k - M) * maxUnknowns + i] * f[k];
            r[i] = v;
        }
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            double v = 0;
            KELM_UNROLL
            for (int j = 0; j < M; ++j) v += inverse[j * maxUnknowns + i] * r[j];
            sLin[i] = v;
        }
    }

    // Per iteration: evaluates the triode at X (limited in place) and writes to s the
    // solved unknowns that the Newton step from there reaches. False, with s unwritten,
    // when the step's system is singular.
    template <int M>
    bool newtonPoint(scalar* X, const double* sLin, const double* p, double* s) const {
        const Triode::Ports t = triode->evaluatePorts(X);
        const double a = t.dIpdVgk, b = t.dIpdVpk, c = t.dIgdVgk;
        const double m00 = 1 + a * K[0][0] + b * K[1][0], m01 = a * K[0][1] + b * K[1][1];
        const double m10 = c * K[0][0], m11 = 1 + c * K[0][1];
        const double dg = p[0] - t.vgk, dp = p[1] - t.vpk;
        const double r0 = t.ip + a * dg + b * dp, r1 = t.ig + c * dg;
        const double det = m00 * m11 - m01 * m10;
        if (!(std::fabs(det) > 0) || !std::isfinite(det)) return false;
        // Two divisions side by side finish sooner than a reciprocal and two products.
        const double z0 = (m11 * r0 - m01 * r1) / det, z1 = (m00 * r1 - m10 * r0) / det;
        KELM_UNROLL
        for (int i = 0; i < M; ++i) s[i] = sLin[i] - response[0][i] * z0 - response[1][i] * z1;
        return true;
    }

private:
    // The sum of w[i] f[i] for i from B to E - 1, added in pairs.
    template <int B, int E>
    static double pairSum(const double* w, const double* f) {
        if constexpr (E - B == 1) {
            return w[B] * f[B];
        } else {
            constexpr int H = B + (E - B) / 2;
            return pairSum<B, H>(w, f) + pairSum<H, E>(w, f);
        }
    }

    Triode* triode = nullptr;
    // A_ss^-1 and A_su (column-major, columns maxUnknowns apart), N by current
    // (ip, ig), K[port][current], and Es | Eu by port.
    double inverse[maxUnknowns * maxUnknowns];
    double coupled[maxUnknowns * maxUnknowns];
    double response[2][maxUnknowns];
    double K[2][2];
    double ports[2][maxUnknowns];
    // p as a function of F0 alone: Es A_ss^-1 on the solved rows, Eu - Es A_ss^-1 A_su
    // on the forced ones.
    double direct[2][maxUnknowns];
};

} // namespace kelm
