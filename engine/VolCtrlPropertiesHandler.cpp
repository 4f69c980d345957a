#include "engine/VolCtrlPropertiesHandler.h"

#include "engine/DSPContext.h"
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

bool VolCtrlPropertiesHandler::runPerSample(Filter& filter, const scalar* in, scalar* out, size_t n) {
    if (!biquad || &filter != target || n == 0) return false;
    // updateForSample and the BiQuad's step, per sample, with the same arithmetic
    // in the same order; but everything that follows from the input alone (the
    // plate resistance and the terms built on it) is worked out for a chunk of
    // samples first, so that the sample loop holds only what depends on the last
    // output: the grid admittance, one division and the filter step.
    constexpr size_t chunk = 64;
    double Pc[chunk], Qc[chunk], D0c[chunk], D1c[chunk], vc[chunk];
    e = b * p;
    f = p * a;
    const double i = q * a;
    scalar x1 = biquad->pastInputs()[0], x2 = biquad->pastInputs()[1];
    scalar y1 = biquad->pastOutputs()[0], y2 = biquad->pastOutputs()[1];
    const scalar lastOutput = y1;
    const scalar b1 = 0.0f;  // B1 stays 0
    scalar b0 = 0, b2 = 0, a1 = 0, a2 = 0;
    for (size_t start = 0; start < n; start += chunk) {
        const size_t m = n - start < chunk ? n - start : chunk;
        for (size_t j = 0; j < m; ++j) {
            const double r = plateResistance->valueAt(in[start + j]);
            const double h = r * a;
            const double u = r * f + p * i;
            vc[j] = h * e + e * i;
            D0c[j] = i + vc[j] + e + f + h + 1;
            D1c[j] = ((vc[j] - i) - e - f - h) + 1;
            Pc[j] = p + u;
            Qc[j] = p - u;
        }
        for (size_t j = 0; j < m; ++j) {
            const double g = static_cast<double>(gridAdmittance->valueAt(y1)) * factor;
            const double nn = 1 / (g * Pc[j] + D0c[j]);
            const double B0 = f * nn;
            b0 = static_cast<scalar>(B0);
            b2 = static_cast<scalar>(-B0);
            a1 = static_cast<scalar>((vc[j] - p * g - 1) * -2 * nn);
            a2 = static_cast<scalar>((Qc[j] * g + D1c[j]) * nn);
            const scalar x = in[start + j];
            scalar s = b1 * x1 + b0 * x;
            s = s + b2 * x2;
            s = s - a1 * y1;
            s = s - a2 * y2;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = s;
            out[start + j] = s;
        }
        v = vc[m - 1];
        D0 = D0c[m - 1];
        D1 = D1c[m - 1];
        P = Pc[m - 1];
        Q = Qc[m - 1];
    }
    // The state that the last updateForSample and step would have left.
    const scalar xs[2] = {x1, x2}, ys[2] = {y1, y2};
    biquad->setHistory(xs, ys);
    (*A)[0] = a1;
    (*A)[1] = a2;
    (*B)[0] = b0;
    (*B)[1] = b1;
    (*B)[2] = b2;
    biquad->setCoefficients(A->data(), B->data());
    // The last outputs the updates were given: out[j - 1] for sample j, the
    // filter's history for sample 0, and before that the previous block's.
    const double before[3] = {lastY[0], lastY[1], lastY[2]};
    for (long k = 0; k < 3; ++k) {
        const long j = static_cast<long>(n) - 1 - k;
        lastY[k] = j >= 1 ? out[j - 1] : j == 0 ? lastOutput : before[-j - 1];
    }
    smoothed = lastY[0];
    dirty = false;
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
