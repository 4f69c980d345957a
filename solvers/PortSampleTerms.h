#pragma once
#include "circuit/Capacitor.h"
#include "engine/Types.h"
#include "solvers/TriodePortForm.h"

namespace kelm {

class MNAContext;

// What a sample of the triode's port form takes from the constant rhs (sLin and p of
// TriodePortForm, and the values of the forced unknowns), as affine functions of the
// circuit's capacitor currents (A) and inputs (V). The functions are read off the rhs
// that the components themselves give; a sample then needs neither the components'
// rhs nor their listeners, and the capacitors advance here by their own update.
class PortSampleTerms {
public:
    static constexpr int maxCapacitors = 8, maxInputs = 4;
    static constexpr int maxRows = TriodePortForm::maxUnknowns + 2;

    // Whether the circuit's constant rhs comes from capacitors and voltage sources alone,
    // and nothing but the capacitors follows the samples; `triode` is the one component
    // whose rhs changes within a sample.
    bool prepare(MNAContext& context, const Component* triode);
    bool applies() const { return eligible; }
    void clear() { eligible = false; }

    // Reads the functions off the rhs (once per block: a source's value may have changed
    // since). False where samples cannot run this way now: outside a transient analysis,
    // or before every capacitor has taken its first step (which differs).
    template <int N, int M>
    bool refresh(MNAContext& context, const TriodePortForm& form) {
        if (!eligible || !ready(context)) return false;
        scalar F[N], base[N], column[N];
        // Everything at zero but the sources' own values, then each current and input at one.
        saveAndZero(context);
        rhsAt(context, base);
        takeRows<N, M>(form, base, constant);
        auto unit = [&](auto set, double* rows) {
            set(1.0f);
            rhsAt(context, F);
            set(0.0f);
            for (int r = 0; r < N; ++r) column[r] = F[r] - base[r];
            takeRows<N, M>(form, column, rows);
        };
        for (int c = 0; c < C; ++c) unit([&](scalar v) { setCapacitorCurrent(c, v); }, perCurrent[c]);
        for (int k = 0; k < K; ++k) unit([&](scalar v) { setInput(context, k, v); }, perInput[k]);
        restore(context, F);
        return true;
    }

    // The capacitors' update from the last solution x.
    void advance(const scalar* x) const {
        for (int c = 0; c < C; ++c) capacitors[c]->advance(x);
    }

    // This sample's terms for the inputs in (V): sLin (M), p (2) and the forced values,
    // written to rows M to N - 1 of F.
    template <int N, int M>
    void terms(const scalar* in, double* sLin, double* p, scalar* F) const {
        constexpr int R = N + 2;
        double t[R];
        KELM_UNROLL
        for (int r = 0; r < R; ++r) t[r] = constant[r];
        for (int c = 0; c < C; ++c) {
            const double s = capacitors[c]->getCurrent();
            KELM_UNROLL
            for (int r = 0; r < R; ++r) t[r] += perCurrent[c][r] * s;
        }
        for (int k = 0; k < K; ++k) {
            const double w = in[k];
            KELM_UNROLL
            for (int r = 0; r < R; ++r) t[r] += perInput[k][r] * w;
        }
        KELM_UNROLL
        for (int i = 0; i < M; ++i) sLin[i] = t[i];
        p[0] = t[M];
        p[1] = t[M + 1];
        KELM_UNROLL
        for (int i = M; i < N; ++i) F[i] = static_cast<scalar>(t[i + 2]);
    }

    int inputCount() const { return K; }

private:
    // Rows of a function: sLin, then p, then the forced values.
    template <int N, int M>
    static void takeRows(const TriodePortForm& form, const scalar* F, double* rows) {
        form.beginSample<N, M>(F, rows, rows + M);
        for (int i = M; i < N; ++i) rows[i + 2] = F[i];
    }
    bool ready(const MNAContext& context) const;
    // The constant rhs as the small solve takes it, with the forced values in their rows.
    static void rhsAt(MNAContext& context, scalar* F);
    void saveAndZero(MNAContext& context);
    void setCapacitorCurrent(int c, scalar current);
    void setInput(MNAContext& context, int k, scalar value);
    // Puts back the state that saveAndZero found, and the rhs that goes with it.
    void restore(MNAContext& context, scalar* F);

    bool eligible = false;
    int C = 0, K = 0;
    Capacitor* capacitors[maxCapacitors] = {};
    scalar savedCurrent[maxCapacitors] = {}, savedVoltage[maxCapacitors] = {}, savedInput[maxInputs] = {};
    double constant[maxRows] = {};
    double perCurrent[maxCapacitors][maxRows] = {};
    double perInput[maxInputs][maxRows] = {};
};

} // namespace kelm
