#include <cmath>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "circuit/devices/TubeParameters.h"
#include "circuit/devices/NKPentodeAnodeCurrent.h"
#include "circuit/devices/NKPentodeScreenCurrent.h"
#include "circuit/devices/PowerLawPentodeGridCurrent.h"

namespace kelm {

namespace {
void readKoren(const PropertyMap& p, const char* cls, double& Vct, double& Kp, double& Kvb, double& mu, double& Ex,
               double& Kg1, double& Kg2) {
    auto required = [&](const char* key, double& target) {
        p.readRequired(key, target, KELMException(std::string(cls) + ": " + key + " is not defined."));
    };
    required("Vct", Vct);
    required("Kp", Kp);
    required("Kvb", Kvb);
    required("mu", mu);
    required("Ex", Ex);
    required("Kg1", Kg1);
    required("Kg2", Kg2);
    requireNonNegative("Vct", Vct);
    requireNonNegative("Kp", Kp);
    requireNonNegative("Kvb", Kvb);
    requireNonNegative("mu", mu);
    requireNonNegative("Ex", Ex);
    requireNonNegative("Kg1", Kg1);
    requireNonNegative("Kg2", Kg2);
}

// E1 = (Vsk/Kp) log(1 + e), e = exp(Kp (1/mu + Vgk/Vsk)); 0 when Vsk is 0.
struct KorenTerms {
    double e = 0, E1 = 0, sgn = 1;
    KorenTerms(double vgk, double vsk, double Kp, double mu) {
        if (vsk == 0) return;
        e = std::exp(Kp * (1 / mu + vgk / vsk));
        E1 = (vsk / Kp) * std::log1p(e);
        sgn = E1 < 0 ? -1.0 : 1.0;
    }
};
} // namespace

void NKPentodeAnodeCurrent::init(const PropertyMap& p) {
    readKoren(p, "NKPentodeAnodeCurrent", Vct, Kp, Kvb, mu, Ex, Kg1, Kg2);
}

void NKPentodeAnodeCurrent::setProperty() {
    throw KELMException("NKPentodeAnodeCurrent::setProperty is not yet implemented.");
}

// With the screen at or below the cathode E1 is 0 or negative, and (1 + sgn) makes the plate
// current zero; pow of a negative E1 would be NaN, so that region returns 0 before any pow.
scalar NKPentodeAnodeCurrent::current(scalar vgk, scalar vpk, scalar vsk) {
    if (!(vsk > 0)) return 0.0f;
    KorenTerms t(vgk, vsk, Kp, mu);
    return static_cast<scalar>(std::atan(vpk / Kvb) * (std::pow(t.E1, Ex) / Kg1) * (1 + t.sgn));
}

scalar NKPentodeAnodeCurrent::dIdVpk(scalar vgk, scalar vpk, scalar vsk) {
    if (!(vsk > 0)) return 0.0f;
    KorenTerms t(vgk, vsk, Kp, mu);
    const double x = vpk / Kvb;
    return static_cast<scalar>(std::pow(t.E1, Ex) * (1 + t.sgn) / ((x * x + 1) * Kg1 * Kvb));
}

scalar NKPentodeAnodeCurrent::dIdVgk(scalar vgk, scalar vpk, scalar vsk) {
    if (!(vsk > 0)) return 0.0f;
    KorenTerms t(vgk, vsk, Kp, mu);
    if (!(t.E1 > 0)) return 0.0f;  // e underflowed far below cut-off: no current, no slope
    const double c = current(vgk, vsk, vpk);  // second and third arguments exchanged, as the model states
    return static_cast<scalar>(Ex * c / t.E1 * t.e / (1 + t.e));
}

scalar NKPentodeAnodeCurrent::dIdVsk(scalar vgk, scalar vpk, scalar vsk) {
    if (!(vsk > 0)) return 0.0f;
    KorenTerms t(vgk, vsk, Kp, mu);
    if (!(t.E1 > 0)) return 0.0f;
    const double c = current(vgk, vsk, vpk);
    return static_cast<scalar>((std::log1p(t.e) / Kp - vgk * t.e / (vsk * (1 + t.e))) * Ex * c / t.E1);
}

const ScalarVectorPtr& NKPentodeAnodeCurrent::derivatives(scalar vgk, scalar vpk, scalar vsk) {
    (*derivativeVector)[0] = dIdVgk(vgk, vpk, vsk);
    (*derivativeVector)[1] = dIdVpk(vgk, vpk, vsk);
    (*derivativeVector)[2] = dIdVsk(vgk, vpk, vsk);
    return derivativeVector;
}

void NKPentodeScreenCurrent::init(const PropertyMap& p) {
    readKoren(p, "NKPentodeScreenCurrent", Vct, Kp, Kvb, mu, Ex, Kg1, Kg2);
}

void NKPentodeScreenCurrent::setProperty() {
    throw KELMException("NKPentodeScreenCurrent::setProperty is not yet implemented.");
}

scalar NKPentodeScreenCurrent::current(scalar vgk, scalar, scalar vsk) {
    const double v = vsk / mu + vgk;
    return v <= 0 ? 0.0f : static_cast<scalar>(std::pow(v, 1.5) / Kg2);
}

scalar NKPentodeScreenCurrent::dIdVgk(scalar vgk, scalar, scalar vsk) {
    const double v = vsk / mu + vgk;
    return v <= 0 ? 0.0f : static_cast<scalar>(1.5 * std::sqrt(v) / Kg2);
}

scalar NKPentodeScreenCurrent::dIdVsk(scalar vgk, scalar, scalar vsk) {
    const double v = vsk / mu + vgk;
    return v <= 0 ? 0.0f : static_cast<scalar>(1.5 * std::sqrt(v) / (Kg2 * mu));
}

const ScalarVectorPtr& NKPentodeScreenCurrent::derivatives(scalar vgk, scalar vpk, scalar vsk) {
    (*derivativeVector)[0] = dIdVgk(vgk, vpk, vsk);
    (*derivativeVector)[1] = 0.0f;
    (*derivativeVector)[2] = dIdVsk(vgk, vpk, vsk);
    return derivativeVector;
}

void PowerLawPentodeGridCurrent::setProperty() {
    throw KELMException("PowerLawPentodeGridCurrent::setProperty is not yet implemented.");
}

} // namespace kelm
