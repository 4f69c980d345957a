#include "circuit/StateSpaceForm.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "circuit/VoltageInputSource.h"
#include "circuit/VoltageSource.h"

namespace kelm {

namespace {

// The per-sample loop: each capacitor's current from its last voltage, then the
// capacitor voltages and the outputs from the currents and the inputs.
void runAny(const StateSpaceForm::Kernel& d, BufferList& inputs, BufferList& outputs, size_t from, size_t to) {
    const int C = d.C, K = d.K, R = d.C + d.O;
    for (size_t i = from; i < to; ++i) {
        for (int c = 0; c < C; ++c) {
            d.vUsed[c] = d.v[c];
            d.s[c] = d.gain[c] * d.v[c] + d.feedback[c] * d.s[c];
        }
        for (int k = 0; k < K; ++k) d.w[k] = inputs[k] ? inputs[k][i] : 0.0;
        for (int r = 0; r < R; ++r) {
            const double* hs = d.Hs + static_cast<size_t>(r) * C;
            const double* hw = d.Hw + static_cast<size_t>(r) * (K + 1);
            double sum = hw[K];
            for (int c = 0; c < C; ++c) sum += hs[c] * d.s[c];
            for (int k = 0; k < K; ++k) sum += hw[k] * d.w[k];
            if (r < C)
                d.v[r] = sum;
            else
                outputs[r - C][i] = static_cast<scalar>(sum);
        }
    }
}

// The same with the sizes known to the compiler (the usual small circuits): states
// and coefficients in locals, so that the loop runs in registers. Same arithmetic.
template <int C, int K, int O>
void runFixed(const StateSpaceForm::Kernel& d, BufferList& inputs, BufferList& outputs, size_t from, size_t to) {
    constexpr int R = C + O;
    double s[C], v[C], gain[C], feedback[C], hs[R][C], hw[R][K + 1], w[K + 1] = {};
    const scalar* in[K + 1];
    scalar* out[O];
    for (int c = 0; c < C; ++c) {
        s[c] = d.s[c];
        v[c] = d.v[c];
        gain[c] = d.gain[c];
        feedback[c] = d.feedback[c];
    }
    for (int r = 0; r < R; ++r) {
        for (int c = 0; c < C; ++c) hs[r][c] = d.Hs[r * C + c];
        for (int k = 0; k <= K; ++k) hw[r][k] = d.Hw[r * (K + 1) + k];
    }
    for (int k = 0; k < K; ++k) in[k] = inputs[k];
    for (int o = 0; o < O; ++o) out[o] = outputs[o];
    for (size_t i = from; i < to; ++i) {
        if (i + 1 == to)
            for (int c = 0; c < C; ++c) d.vUsed[c] = v[c];
        for (int c = 0; c < C; ++c) s[c] = gain[c] * v[c] + feedback[c] * s[c];
        for (int k = 0; k < K; ++k) w[k] = in[k] ? in[k][i] : 0.0;
        double z[R];
        for (int r = 0; r < R; ++r) {
            double sum = hw[r][K];
            for (int c = 0; c < C; ++c) sum += hs[r][c] * s[c];
            for (int k = 0; k < K; ++k) sum += hw[r][k] * w[k];
            z[r] = sum;
        }
        for (int c = 0; c < C; ++c) v[c] = z[c];
        for (int o = 0; o < O; ++o) out[o][i] = static_cast<scalar>(z[C + o]);
    }
    for (int c = 0; c < C; ++c) {
        d.s[c] = s[c];
        d.v[c] = v[c];
    }
    for (int k = 0; k < K; ++k) d.w[k] = w[k];
}

#if defined(__SSE2__)
// runFixed for two circuits of the same sizes, one per lane: the same operations in
// the same order for each, over a whole block.
template <int C, int K, int O>
void twinFixed(const StateSpaceForm::Kernel& da, BufferList& inputsA, BufferList& outputsA,
               const StateSpaceForm::Kernel& db, BufferList& inputsB, BufferList& outputsB, size_t n) {
    constexpr int R = C + O;
    auto pair = [](double x, double y) { return _mm_set_pd(y, x); };
    auto split = [](__m128d x, double& l, double& r) {
        double v[2];
        _mm_storeu_pd(v, x);
        l = v[0], r = v[1];
    };
    __m128d s[C], v[C], gain[C], feedback[C], hs[R][C], hw[R][K + 1], w[K + 1];
    const scalar *inA[K + 1], *inB[K + 1];
    scalar *outA[O], *outB[O];
    for (int c = 0; c < C; ++c) {
        s[c] = pair(da.s[c], db.s[c]);
        v[c] = pair(da.v[c], db.v[c]);
        gain[c] = pair(da.gain[c], db.gain[c]);
        feedback[c] = pair(da.feedback[c], db.feedback[c]);
    }
    for (int r = 0; r < R; ++r) {
        for (int c = 0; c < C; ++c) hs[r][c] = pair(da.Hs[r * C + c], db.Hs[r * C + c]);
        for (int k = 0; k <= K; ++k) hw[r][k] = pair(da.Hw[r * (K + 1) + k], db.Hw[r * (K + 1) + k]);
    }
    for (int k = 0; k <= K; ++k) w[k] = _mm_setzero_pd();
    for (int k = 0; k < K; ++k) {
        inA[k] = inputsA[k];
        inB[k] = inputsB[k];
    }
    for (int o = 0; o < O; ++o) {
        outA[o] = outputsA[o];
        outB[o] = outputsB[o];
    }
    for (size_t i = 0; i < n; ++i) {
        if (i + 1 == n)
            for (int c = 0; c < C; ++c) split(v[c], da.vUsed[c], db.vUsed[c]);
        for (int c = 0; c < C; ++c) s[c] = _mm_add_pd(_mm_mul_pd(gain[c], v[c]), _mm_mul_pd(feedback[c], s[c]));
        for (int k = 0; k < K; ++k) w[k] = pair(inA[k] ? inA[k][i] : 0.0, inB[k] ? inB[k][i] : 0.0);
        __m128d z[R];
        for (int r = 0; r < R; ++r) {
            __m128d sum = hw[r][K];
            for (int c = 0; c < C; ++c) sum = _mm_add_pd(sum, _mm_mul_pd(hs[r][c], s[c]));
            for (int k = 0; k < K; ++k) sum = _mm_add_pd(sum, _mm_mul_pd(hw[r][k], w[k]));
            z[r] = sum;
        }
        for (int c = 0; c < C; ++c) v[c] = z[c];
        for (int o = 0; o < O; ++o) {
            const __m128 y = _mm_cvtpd_ps(z[C + o]);
            outA[o][i] = _mm_cvtss_f32(y);
            outB[o][i] = _mm_cvtss_f32(_mm_shuffle_ps(y, y, 1));
        }
    }
    for (int c = 0; c < C; ++c) {
        split(s[c], da.s[c], db.s[c]);
        split(v[c], da.v[c], db.v[c]);
    }
    for (int k = 0; k < K; ++k) split(w[k], da.w[k], db.w[k]);
}

template <int C, int K, int O>
StateSpaceForm::TwinRun pickTwin(int c, int k, int o) {
    if (c == C && k == K && o == O) return twinFixed<C, K, O>;
    if constexpr (O < 2) return pickTwin<C, K, O + 1>(c, k, o);
    else if constexpr (K < 2) return pickTwin<C, K + 1, 1>(c, k, o);
    else if constexpr (C < 4) return pickTwin<C + 1, 0, 1>(c, k, o);
    else return nullptr;
}
#endif

template <int C, int K, int O>
StateSpaceForm::Run pickFixed(int c, int k, int o) {
    if (c == C && k == K && o == O) return runFixed<C, K, O>;
    if constexpr (O < 2) return pickFixed<C, K, O + 1>(c, k, o);
    else if constexpr (K < 2) return pickFixed<C, K + 1, 1>(c, k, o);
    else if constexpr (C < 4) return pickFixed<C + 1, 0, 1>(c, k, o);
    else return runAny;
}

} // namespace

bool StateSpaceForm::prepare(MNAContext& ctx, int inputs, int outputs) {
    eligible = built = stateValid = false;
    context = &ctx;
    capacitors.clear();
    sources.clear();
    if (ctx.getAnalysisType() != 1 || !ctx.rhsSplits()) return false;
    for (Component* c : ctx.getComponents()) {
        if (c->isNonlinear() || c->hasSignalDependentStamps()) return false;
        if (!c->hasRhs()) continue;
        if (auto* cap = dynamic_cast<Capacitor*>(c))
            capacitors.push_back(cap);
        else if (dynamic_cast<VoltageSource*>(c) && !c->rhsReadsSolution())
            sources.push_back(c);
        else
            return false;
    }
    // Whatever else follows the samples would be skipped.
    for (MNAEventListener* l : ctx.listeners())
        if (!dynamic_cast<Capacitor*>(l) && !dynamic_cast<VoltageInputSource*>(l)) return false;
    n = static_cast<int>(ctx.matrix().rows());
    if (n == 0 || ctx.solution().size() != n || ctx.size() != n) return false;
    C = static_cast<int>(capacitors.size());
    K = inputs;
    if (K > 0 && (!ctx.inputs() || static_cast<int>(ctx.inputs()->size()) < K)) return false;
    O = std::min<int>(outputs, static_cast<int>(ctx.outputIndex().size()));
    R = C + O;
    nodeA.assign(C, -1);
    nodeB.assign(C, -1);
    gain.assign(C, 0.0);
    feedback.assign(C, 0.0);
    for (int c = 0; c < C; ++c) {
        const auto& nodes = *capacitors[c]->getNodes();
        nodeA[c] = nodes[0] >= 0 && nodes[0] < n ? nodes[0] : -1;
        nodeB[c] = nodes[1] >= 0 && nodes[1] < n ? nodes[1] : -1;
    }
    for (int o = 0; o < O; ++o)
        if (ctx.outputIndex()[o] < 0 || ctx.outputIndex()[o] >= n) return false;
    A.setZero(n, n);
    lu = Eigen::PartialPivLU<Eigen::MatrixXd>(n);
    solved.setZero(n);
    H.assign(static_cast<size_t>(R) * n, 0.0);
    Hs.assign(static_cast<size_t>(R) * C, 0.0);
    Hw.assign(static_cast<size_t>(R) * (K + 1), 0.0);
    Bs.assign(static_cast<size_t>(n) * C, 0.0);
    s.assign(C, 0.0);
    v.assign(C, 0.0);
    vUsed.assign(C, 0.0);
    w.assign(K, 0.0);
    b.assign(n, 0.0);
    b0.assign(n, 0.0);
    column.setZero(n);
    columnF.assign(n, 0.0f);
    u.assign(ctx.portCount(), 0.0f);
    writtenX.assign(n, 0.0f);
    writtenCurrent.assign(C, 0.0f);
    run = pickFixed<1, 0, 1>(C, K, O);
#if defined(__SSE2__)
    twinRun = pickTwin<1, 0, 1>(C, K, O);
#else
    twinRun = nullptr;
#endif
    eligible = true;
    return true;
}

bool StateSpaceForm::ready() const {
    if (!eligible) return false;
    for (const Capacitor* c : capacitors)
        if (!c->started()) return false;
    return true;
}

void StateSpaceForm::portsToRhs(double* out) {
    std::fill(out, out + n, 0.0);
    for (int p = 0; p < static_cast<int>(u.size()); ++p) {
        if (u[p] == 0.0f) continue;
        context->portColumn(p, columnF.data());
        for (int r = 0; r < n; ++r) out[r] += static_cast<double>(columnF[r]) * u[p];
    }
}

void StateSpaceForm::sourceRhs(const double* inputs, double* out) {
    if (K > 0) {
        ScalarVector& in = *context->inputs();
        for (int k = 0; k < K; ++k) in[k] = static_cast<scalar>(inputs[k]);
    }
    std::fill(u.begin(), u.end(), 0.0f);
    scalar* xp = context->solution().data();
    for (Component* c : sources)
        if (const scalar* r = c->getRhs(xp)) context->addPortAmplitudes(c, r, u.data());
    portsToRhs(out);
}

void StateSpaceForm::build() {
    context->assembleMatrix(A.data());
    lu.compute(A);
    if ((lu.matrixLU().diagonal().array() == 0.0).any()) {
        // The generic path reports a singular matrix in its own words.
        eligible = false;
        return;
    }
    // Row r of H = (selection of row r) A^-1, solved with A transposed.
    for (int r = 0; r < R; ++r) {
        column.setZero();
        if (r < C) {
            if (nodeA[r] >= 0) column[nodeA[r]] += 1.0;
            if (nodeB[r] >= 0) column[nodeB[r]] -= 1.0;
        } else {
            column[context->outputIndex()[r - C]] = 1.0;
        }
        solved.noalias() = lu.transpose().solve(column);
        for (int k = 0; k < n; ++k) H[static_cast<size_t>(r) * n + k] = solved[k];
    }
    // Each capacitor's unit current, as its rhs entries (-1 at its first node, +1 at its second) give it.
    const scalar unit[2] = {-1.0f, 1.0f};
    for (int c = 0; c < C; ++c) {
        gain[c] = capacitors[c]->updateGain();
        feedback[c] = capacitors[c]->updateFeedback();
        std::fill(u.begin(), u.end(), 0.0f);
        context->addPortAmplitudes(capacitors[c], unit, u.data());
        portsToRhs(Bs.data() + static_cast<size_t>(c) * n);
    }
    for (int r = 0; r < R; ++r)
        for (int c = 0; c < C; ++c) {
            double sum = 0;
            for (int k = 0; k < n; ++k) sum += H[static_cast<size_t>(r) * n + k] * Bs[static_cast<size_t>(c) * n + k];
            Hs[static_cast<size_t>(r) * C + c] = sum;
        }
    built = true;
}

void StateSpaceForm::loadState() {
    const DenseVector& x = context->solution();
    bool same = stateValid && std::memcmp(x.data(), writtenX.data(), sizeof(scalar) * n) == 0;
    for (int c = 0; same && c < C; ++c) same = capacitors[c]->getCurrent() == writtenCurrent[c];
    if (same) return;
    // Someone else advanced the circuit since: take its state.
    for (int c = 0; c < C; ++c) {
        s[c] = capacitors[c]->getCurrent();
        v[c] = (nodeA[c] >= 0 ? static_cast<double>(x[nodeA[c]]) : 0.0) -
               (nodeB[c] >= 0 ? static_cast<double>(x[nodeB[c]]) : 0.0);
    }
    stateValid = true;
}

void StateSpaceForm::writeState(const double* inputs) {
    // x from the last sample's capacitor currents and inputs, as the solver would give it.
    sourceRhs(inputs, b.data());
    for (int c = 0; c < C; ++c)
        for (int k = 0; k < n; ++k) b[k] += Bs[static_cast<size_t>(c) * n + k] * s[c];
    solved.noalias() = lu.solve(Eigen::Map<const Eigen::VectorXd>(b.data(), n));
    DenseVector& x = context->solution();
    for (int k = 0; k < n; ++k) x[k] = writtenX[k] = static_cast<scalar>(solved[k]);
    for (int c = 0; c < C; ++c) {
        writtenCurrent[c] = static_cast<scalar>(s[c]);
        capacitors[c]->setState(writtenCurrent[c], static_cast<scalar>(vUsed[c]));
    }
}

void StateSpaceForm::beginBlock() {
    // The inputs' part, per block: the sources may have changed (a DC offset, a battery's voltage).
    std::fill(w.begin(), w.end(), 0.0);
    sourceRhs(w.data(), b0.data());
    for (int k = 0; k <= K; ++k) {
        if (k < K) {
            w[k] = 1.0;
            sourceRhs(w.data(), b.data());
            w[k] = 0.0;
            for (int r = 0; r < n; ++r) b[r] -= b0[r];
        }
        const double* rhs = k < K ? b.data() : b0.data();
        for (int r = 0; r < R; ++r) {
            double sum = 0;
            for (int j = 0; j < n; ++j) sum += H[static_cast<size_t>(r) * n + j] * rhs[j];
            Hw[static_cast<size_t>(r) * (K + 1) + k] = sum;
        }
    }
    loadState();
}

StateSpaceForm::Kernel StateSpaceForm::kernel() {
    return Kernel{C, K, O, s.data(), v.data(), vUsed.data(), w.data(), gain.data(), feedback.data(), Hs.data(), Hw.data()};
}

bool StateSpaceForm::process(BufferList& inputs, BufferList& outputs, size_t from, size_t to) {
    if (!built) build();
    if (!eligible) return false;
    if (from >= to) return true;
    beginBlock();
    run(kernel(), inputs, outputs, from, to);
    writeState(w.data());
    return true;
}

bool StateSpaceForm::processTwin(StateSpaceForm& a, BufferList& inputs, BufferList& outputs, StateSpaceForm& b,
                                 BufferList& twinInputs, BufferList& twinOutputs, size_t n) {
    if (&a == &b || n == 0) return false;
    if (!a.built) a.build();
    if (!b.built) b.build();
    if (!a.eligible || !b.eligible || a.C != b.C || a.K != b.K || a.O != b.O || !a.twinRun) return false;
    a.beginBlock();
    b.beginBlock();
    a.twinRun(a.kernel(), inputs, outputs, b.kernel(), twinInputs, twinOutputs, n);
    a.writeState(a.w.data());
    b.writeState(b.w.data());
    return true;
}

} // namespace kelm
