#include "plugin/core/VolCtrlPropertiesHandler.h"

#include <type_traits>

#include "dsp/BiQuadState.h"
#include "dsp/TwoLanes.h"
#include "dsp/DSPContext.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

VolCtrlPropertiesHandler::VolCtrlPropertiesHandler(Filter* t)
    : target(t),
      biquad(dynamic_cast<FixedOrderIIR<2>*>(t)),
      gridAdmittance(new LookupTableFilter()),
      plateResistance(new LookupTableFilter()),
      A(std::make_shared<ScalarVector>(2, 0.0f)),
      B(std::make_shared<ScalarVector>(3, 0.0f)) {
    std::shared_ptr<DSPContext> none;
    gridAdmittance->init("yg", none);
    plateResistance->init("rp", none);
    p = wiper * R;
    q = (1 - wiper) * R;
}

void VolCtrlPropertiesHandler::propertiesChanged(const PropertyMapPtr& properties) {
    if (properties->readOptional("Wiper", wiper)) {
        p = wiper * R;
        q = (1 - wiper) * R;
    }
    properties->readOptional("Factor", factor);
    properties->readOptional("Relaxation", relaxation);
    dirty = true;
}

void VolCtrlPropertiesHandler::propertyChanged(const std::string& name, scalar value) {
    if (name != "Wiper") throw InvalidArgumentException("VolCtrlPropertiesHandler: Unknown property " + name);
    wiper = value;
    p = wiper * R;
    q = (1 - wiper) * R;
    dirty = true;
}

void VolCtrlPropertiesHandler::sampleRateChanged(scalar rate) {
    k = 2.0 * rate;
    a = c1 * k;
    b = c2 * k;
    dirty = true;
}

void VolCtrlPropertiesHandler::send() {
    if (biquad) {
        // The same as propertyChanged("A") and ("B") on a BiQuad, without the lookup by name.
        biquad->setCoefficients(A->data(), B->data());
        return;
    }
    static const std::string nameA = "A", nameB = "B";
    target->propertyChanged(nameA, A);
    target->propertyChanged(nameB, B);
}

void VolCtrlPropertiesHandler::updateForSample(scalar x, scalar y) {
    const double r = plateResistance->process(x);
    const double g = static_cast<double>(gridAdmittance->process(y)) * factor;
    smoothed = y;
    lastY[2] = lastY[1];
    lastY[1] = lastY[0];
    lastY[0] = y;
    dirty = false;
    e = b * p;
    f = p * a;
    const double h = r * a;
    const double i = q * a;
    const double u = r * f + p * i;
    v = h * e + e * i;
    D0 = i + v + e + f + h + 1;
    D1 = ((v - i) - e - f - h) + 1;
    P = p + u;
    Q = p - u;
    const double n = 1 / (g * P + D0);
    write(g, n, f * n);
}

// The per-sample loop of one handler and its BiQuad over a block: updateForSample and the
// BiQuad's step, per sample, with the same arithmetic in the same order; but everything
// that follows from the input alone (the plate resistance and the terms built on it) is
// worked out for a chunk of samples first, so that the sample loop holds only what depends
// on the last output: the grid admittance, one division and the filter step. Cut into
// steps so that two handlers' loops can run interleaved.
struct VolCtrlPropertiesHandler::Lane {
    static constexpr size_t chunk = 64;
    VolCtrlPropertiesHandler& h;
    FixedOrderIIR<2>& biquad;
    const scalar* in;
    scalar* out;
    const size_t n;
    const double i;
    // What the sample loop reads of the handler, in locals: the output stores could
    // otherwise alias the float factor.
    const LookupTableFilter& yg;
    const double f, p;
    const scalar factor;
    BiQuadState<scalar> state;
    const scalar lastOutput;
    scalar b0 = 0, b2 = 0, a1 = 0, a2 = 0;
    double Pc[chunk], Qc[chunk], D0c[chunk], D1c[chunk], vc[chunk];

    Lane(VolCtrlPropertiesHandler& handler, const scalar* input, scalar* output, size_t frames)
        : h(handler),
          biquad(*handler.biquad),
          in(input),
          out(output),
          n(frames),
          i(begin(handler)),
          yg(*handler.gridAdmittance),
          f(handler.f),
          p(handler.p),
          factor(handler.factor),
          state{biquad.pastInputs()[0], biquad.pastInputs()[1], biquad.pastOutputs()[0], biquad.pastOutputs()[1]},
          lastOutput(state.y1) {}

    // The terms that stay for the whole block, as updateForSample works them out.
    static double begin(VolCtrlPropertiesHandler& h) {
        h.e = h.b * h.p;
        h.f = h.p * h.a;
        return h.q * h.a;
    }

    // Fills the terms of the chunk that starts at `start`; returns its length.
    size_t prepare(size_t start) {
        const size_t m = n - start < chunk ? n - start : chunk;
        const double a = h.a, e = h.e;
        alignas(16) scalar rs[chunk];
        h.plateResistance->valuesAt(in + start, rs, m);
        for (size_t j = 0; j < m; ++j) {
            const double r = rs[j];
            const double hr = r * a;
            const double u = r * f + p * i;
            vc[j] = hr * e + e * i;
            D0c[j] = i + vc[j] + e + f + hr + 1;
            D1c[j] = ((vc[j] - i) - e - f - hr) + 1;
            Pc[j] = p + u;
            Qc[j] = p - u;
        }
        return m;
    }

    void step(size_t start, size_t j) {
        constexpr scalar b1 = 0.0f;  // B1 stays 0
        const double g = static_cast<double>(yg.valueAt(state.y1)) * factor;
        const double nn = 1 / (g * Pc[j] + D0c[j]);
        const double B0 = f * nn;
        b0 = static_cast<scalar>(B0);
        b2 = static_cast<scalar>(-B0);
        a1 = static_cast<scalar>((vc[j] - p * g - 1) * -2 * nn);
        a2 = static_cast<scalar>((Qc[j] * g + D1c[j]) * nn);
        out[start + j] = state.step(b0, b1, b2, a1, a2, in[start + j]);
    }

    void endChunk(size_t m) {
        h.v = vc[m - 1];
        h.D0 = D0c[m - 1];
        h.D1 = D1c[m - 1];
        h.P = Pc[m - 1];
        h.Q = Qc[m - 1];
    }

    // Leaves the state that the last updateForSample and step would have left.
    void finish() {
        const scalar xs[2] = {state.x1, state.x2}, ys[2] = {state.y1, state.y2};
        biquad.setHistory(xs, ys);
        (*h.A)[0] = a1;
        (*h.A)[1] = a2;
        (*h.B)[0] = b0;
        (*h.B)[1] = 0.0f;
        (*h.B)[2] = b2;
        biquad.setCoefficients(h.A->data(), h.B->data());
        // The last outputs the updates were given: out[j - 1] for sample j, the
        // filter's history for sample 0, and before that the previous block's.
        const double before[3] = {h.lastY[0], h.lastY[1], h.lastY[2]};
        for (long k = 0; k < 3; ++k) {
            const long j = static_cast<long>(n) - 1 - k;
            h.lastY[k] = j >= 1 ? out[j - 1] : j == 0 ? lastOutput : before[-j - 1];
        }
        h.smoothed = h.lastY[0];
        h.dirty = false;
    }
};

bool VolCtrlPropertiesHandler::runPerSample(Filter& filter, const scalar* in, scalar* out, size_t n) {
    if (!biquad || &filter != target || n == 0) return false;
    Lane lane(*this, in, out, n);
    for (size_t start = 0; start < n; start += Lane::chunk) {
        const size_t m = lane.prepare(start);
        for (size_t j = 0; j < m; ++j) lane.step(start, j);
        lane.endChunk(m);
    }
    lane.finish();
    return true;
}

#if defined(__SSE2__)
namespace {
typedef TwoLanes<double> D2;
typedef TwoLanes<float> F2;
} // namespace
#endif

bool VolCtrlPropertiesHandler::runPerSampleTwin(Filter& filter, const scalar* in, scalar* out,
                                                PropertiesHandler& twinHandler, Filter& twinFilter,
                                                const scalar* twinIn, scalar* twinOut, size_t n) {
    VolCtrlPropertiesHandler* twin = dynamic_cast<VolCtrlPropertiesHandler*>(&twinHandler);
    if (!biquad || &filter != target || n == 0 || !twin || twin == this || !twin->biquad ||
        &twinFilter != twin->target)
        return false;
    // Each sample's chain (a table lookup of the last output, a division, the filter step)
    // waits on the one before; the other channel's chain is independent and fills the wait.
    Lane a(*this, in, out, n), b(*twin, twinIn, twinOut, n);
#if defined(__SSE2__)
    // Both channels' arithmetic in the two lanes of a register: half the instructions.
    // Only the table lookups stay scalar.
    const D2 ca(this->a, twin->a), ce(e, twin->e), cf(a.f, b.f), cp(a.p, b.p), ci(a.i, b.i), one(1.0, 1.0);
    const D2 minusTwo(-2.0, -2.0);
    const D2 factors(static_cast<double>(a.factor), static_cast<double>(b.factor));
    const bool unit = a.factor == 1.0f && b.factor == 1.0f;
    BiQuadState<F2> state{F2(a.state.x1, b.state.x1), F2(a.state.x2, b.state.x2), F2(a.state.y1, b.state.y1),
                          F2(a.state.y2, b.state.y2)};
    F2 b0(0.0f, 0.0f), b2(0.0f, 0.0f), a1(0.0f, 0.0f), a2(0.0f, 0.0f);
    const F2 b1(0.0f, 0.0f);  // B1 stays 0
    alignas(16) double Pc[2 * Lane::chunk], Qc[2 * Lane::chunk], D0c[2 * Lane::chunk], D1c[2 * Lane::chunk],
        vc[2 * Lane::chunk];
    for (size_t start = 0; start < n; start += Lane::chunk) {
        const size_t m = n - start < Lane::chunk ? n - start : Lane::chunk;
        alignas(16) scalar rl[Lane::chunk], rr[Lane::chunk];
        plateResistance->valuesAt(in + start, rl, m);
        twin->plateResistance->valuesAt(twinIn + start, rr, m);
        for (size_t j = 0; j < m; ++j) {
            const D2 r(rl[j], rr[j]);
            const D2 hr = r * ca;
            const D2 u = r * cf + cp * ci;
            const D2 v = hr * ce + ce * ci;
            v.store(vc + 2 * j);
            (ci + v + ce + cf + hr + one).store(D0c + 2 * j);
            (((v - ci) - ce - cf - hr) + one).store(D1c + 2 * j);
            (cp + u).store(Pc + 2 * j);
            (cp - u).store(Qc + 2 * j);
        }
        auto steps = [&](auto unitFactor) {
            for (size_t j = 0; j < m; ++j) {
                D2 g(static_cast<double>(a.yg.valueAt(state.y1.lane0())),
                     static_cast<double>(b.yg.valueAt(state.y1.lane1())));
                // A product with a factor of 1 is the value itself: one step less in the chain.
                if (!decltype(unitFactor)::value) g = g * factors;
                const D2 nn = one / (g * D2::load(Pc + 2 * j) + D2::load(D0c + 2 * j));
                const D2 B0 = cf * nn;
                b0 = F2(B0);
                b2 = F2(-B0);
                a1 = F2((D2::load(vc + 2 * j) - cp * g - one) * minusTwo * nn);
                a2 = F2((D2::load(Qc + 2 * j) * g + D2::load(D1c + 2 * j)) * nn);
                const F2 s = state.step(b0, b1, b2, a1, a2, F2(in[start + j], twinIn[start + j]));
                out[start + j] = s.lane0();
                twinOut[start + j] = s.lane1();
            }
        };
        if (unit)
            steps(std::true_type());
        else
            steps(std::false_type());
        const size_t last = 2 * (m - 1);
        v = vc[last], twin->v = vc[last + 1];
        D0 = D0c[last], twin->D0 = D0c[last + 1];
        D1 = D1c[last], twin->D1 = D1c[last + 1];
        P = Pc[last], twin->P = Pc[last + 1];
        Q = Qc[last], twin->Q = Qc[last + 1];
    }
    a.state = {state.x1.lane0(), state.x2.lane0(), state.y1.lane0(), state.y2.lane0()};
    b.state = {state.x1.lane1(), state.x2.lane1(), state.y1.lane1(), state.y2.lane1()};
    a.b0 = b0.lane0(), b.b0 = b0.lane1();
    a.b2 = b2.lane0(), b.b2 = b2.lane1();
    a.a1 = a1.lane0(), b.a1 = a1.lane1();
    a.a2 = a2.lane0(), b.a2 = a2.lane1();
#else
    for (size_t start = 0; start < n; start += Lane::chunk) {
        const size_t m = a.prepare(start);
        b.prepare(start);
        for (size_t j = 0; j < m; ++j) {
            a.step(start, j);
            b.step(start, j);
        }
        a.endChunk(m);
        b.endChunk(m);
    }
#endif
    a.finish();
    b.finish();
    return true;
}

void VolCtrlPropertiesHandler::write(double g, double n, double B0) {
    (*B)[0] = static_cast<scalar>(B0);
    (*B)[1] = 0.0f;
    (*B)[2] = static_cast<scalar>(-B0);
    (*A)[0] = static_cast<scalar>((v - p * g - 1) * -2 * n);
    (*A)[1] = static_cast<scalar>((Q * g + D1) * n);
    send();
}

void VolCtrlPropertiesHandler::updateForIteration(scalar x, scalar y, int iteration) {
    if (iteration == 0) {
        updateForSample(x, y);
        return;
    }
    smoothed = relaxation * (y - smoothed) + smoothed;
    double g = gridAdmittance->process(static_cast<scalar>(smoothed));
    if (g > 5e-06) g = 5e-06;
    const double n = 1 / (P * g + D0);
    write(g, n, (f * n) * factor);  // here Factor scales the numerator instead
}

} // namespace kelm
