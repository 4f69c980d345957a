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
