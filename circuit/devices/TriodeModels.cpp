#include <cmath>
#include <map>
#include <memory>
#include <mutex>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "circuit/devices/TubeParameters.h"
#include "math/Elementary.h"
#include "math/TableIndex.h"
#include "circuit/devices/NKTriodeAnodeCurrent.h"
#include "circuit/devices/PowerLawTriodeGridCurrent.h"

namespace kelm {

// ---- Norman Koren plate current ----

namespace {
// The terms of the Koren equation at one operating point, in double.
struct KorenTerms {
    double Vp, Vg, s, e, log1e, E1, sgn;
    KorenTerms(double vp, double vg, double Kp, double Kvb, double mu, double gridOffset) : Vp(vp), Vg(vg) {
        s = std::sqrt(Vp * Vp + Kvb);
        e = std::exp(Kp * (1 / mu + (Vg + gridOffset) / s));
        log1e = std::log(1 + e);
        E1 = (Vp / Kp) * log1e;
        sgn = E1 < 0 ? -1.0 : 1.0;
    }
};

// x held within +-700, where the branchless exponential is defined. Its own loop: fused
// with the exponential or the logarithm, the comparison keeps the compiler from vectorising.
void clampExponents(double* __restrict x, int from, int to) {
    for (int j = from; j < to; ++j) {
        const double held = x[j] > -700.0 ? x[j] : -700.0;
        x[j] = held < 700.0 ? held : 700.0;
    }
}

// Koren's e = exp(Kp (1 / mu + vg / sqrt(vp^2 + Kvb))), log(1 + e) and E1^(Ex - 1) along one
// row of the tables, at grid voltage vg, for the columns 1 to cols - 1 (plate voltages and
// 1 / sqrt(vp^2 + Kvb) given per column). In passes without branches, so that each vectorises;
// on Linux a second copy for processors with AVX2 takes four columns at a time where they have
// it (the same operations without fused multiply-adds: the same numbers as the first copy).
// Not under ThreadSanitizer, whose runtime is not yet up when the copy is chosen at load (the
// choice then crashes).
#if defined(__linux__) && defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_THREAD__)
__attribute__((target_clones("avx2", "default")))
#endif
void rowTerms(const double* __restrict plate, const double* __restrict inverseRoot, int cols, double Kp, double mu,
              double Ex, double vg, double* __restrict e, double* __restrict log1e, double* __restrict power) {
    for (int j = 1; j < cols; ++j) e[j] = Kp * (1 / mu + vg * inverseRoot[j]);
    clampExponents(e, 1, cols);
    for (int j = 1; j < cols; ++j) {
        const double ej = branchlessExp(e[j]);
        const double u = 1 + ej;
        e[j] = ej;
        log1e[j] = branchlessLog(u) + (ej - (u - 1)) / u;
    }
    // E1 is never negative; the 1e-300 keeps its logarithm finite where it underflows.
    for (int j = 1; j < cols; ++j) power[j] = (Ex - 1) * branchlessLog((plate[j] / Kp) * log1e[j] + 1e-300);
    clampExponents(power, 1, cols);
    for (int j = 1; j < cols; ++j) power[j] = branchlessExp(power[j]);
}
} // namespace

NKTriodeAnodeCurrent::NKTriodeAnodeCurrent() : derivativeVector(std::make_shared<ScalarVector>(2, 0.0f)) {}

void NKTriodeAnodeCurrent::setProperty() {
    throw KELMException("NKTriodeAnodeCurrent::setProperty is not yet implemented.");
}

void NKTriodeAnodeCurrent::init(const PropertyMap& p) {
    auto required = [&](const char* key, auto& target) {
        p.readRequired(key, target, KELMException(std::string("NKTriodeAnodeCurrent: ") + key + " is not defined."));
    };
    required("Vct", Vct);
    required("Kp", Kp);
    required("Kvb", Kvb);
    required("mu", mu);
    required("Ex", Ex);
    required("Kg", Kg);
    p.readOptional("DoNotInterpolate", direct);
    if (p.readOptional("DeltaVpk", deltaVpk)) inverseDeltaVpk = 1.0f / deltaVpk;
    if (p.readOptional("DeltaVgk", deltaVgk)) inverseDeltaVgk = 1.0f / deltaVgk;
    inverseArea = 1.0f / (deltaVgk * deltaVpk);
    required("VgkMax", VgkMax);
    required("VgkMin", VgkMin);
    required("VpMax", VpMax);
    requireNonNegative("Vct", Vct);
    requireNonNegative("Kp", Kp);
    requireNonNegative("Kvb", Kvb);
    requireNonNegative("mu", mu);
    requireNonNegative("Ex", Ex);
    requireNonNegative("Kg", Kg);
    if (!direct) {
        if (VgkMin >= VgkMax)
            throw InvalidArgumentException(str("VgkMax must be greater than VgkMin. VgkMax=", VgkMax, "VgkMin=", VgkMin));
        if (VpMax <= 0) throw InvalidArgumentException(str("Triode: VpMax must be greater than 0. VpMax=", VpMax));
        buildTables();
    }
}

scalar NKTriodeAnodeCurrent::directCurrent(scalar vgk, scalar vpk) {
    if (vpk <= 0 || VgkMin > vgk) return 0.0f;
    const KorenTerms t(std::min(vpk, VpMax), std::min(vgk, VgkMax), Kp, Kvb, mu, Vct);
    return static_cast<scalar>(std::pow(t.E1, Ex) * (1 + t.sgn) / Kg);
}

void NKTriodeAnodeCurrent::buildTables() {
    rows = static_cast<int>((VgkMax - VgkMin) * (1.0f / deltaVgk)) + 1;
    cols = static_cast<int>((1.0f / deltaVpk) * VpMax) + 1;
    if (rows < 2 || cols < 2)
        throw InvalidArgumentException(str("Triode: the table grid needs at least two rows and two columns. Rows=", rows,
                                           " Columns=", cols));
    // Tubes of one type share their tables: computed once a process and never changed after,
    // so that every tube of the type reads the same memory.
    static std::mutex guard;
    static std::map<std::vector<double>, std::shared_ptr<const Tables>> computed;
    const std::vector<double> key = {Vct, Kp, Kvb, mu, Ex, Kg, VgkMax, VgkMin, VpMax, deltaVpk, deltaVgk};
    std::lock_guard<std::mutex> lock(guard);
    auto it = computed.find(key);
    if (it == computed.end()) it = computed.emplace(key, computeTables()).first;
    tables = it->second;
    currentTable = tables->current.data();
    dVgkTable = tables->dVgk.data();
    dVpkTable = tables->dVpk.data();
}

std::shared_ptr<const NKTriodeAnodeCurrent::Tables> NKTriodeAnodeCurrent::computeTables() const {
    auto made = std::make_shared<Tables>();
    const size_t size = static_cast<size_t>(rows) * cols;
    made->current.assign(size, 0.0f);
    made->dVgk.assign(size, 0.0f);
    made->dVpk.assign(size, 0.0f);
    // The three tables hold current, dIdVgk and dIdVpk as their direct forms give them. The
    // plate voltage's terms are computed once per column; along a row the loops have neither
    // branches nor table reads, so that the compiler may vectorise them (the hundreds of
    // thousands of points are most of a document's start-up). E1 is positive at every point
    // (the plate above 0, log(1 + e) above 0), which leaves the (1 + sgn) of the model at 2.
    std::vector<double> plate(cols), inverseRoot(cols), plateTerm(cols), e(cols), log1e(cols), power(cols);
    for (int j = 0; j < cols; ++j) {
        const double vp = std::min(j * deltaVpk, VpMax);
        plate[j] = vp;
        inverseRoot[j] = 1 / std::sqrt(vp * vp + Kvb);
        plateTerm[j] = inverseRoot[j] * inverseRoot[j] * inverseRoot[j];
    }
    for (int i = 0; i < rows; ++i) {
        const float vgk = i * deltaVgk + VgkMin;
        if (VgkMin > vgk) continue;  // no current, no slope: the entries stay 0
        const double vg = std::min(vgk, VgkMax);
        float* current = made->current.data() + static_cast<size_t>(i) * cols;
        float* dVgk = made->dVgk.data() + static_cast<size_t>(i) * cols;
        float* dVpk = made->dVpk.data() + static_cast<size_t>(i) * cols;
        // Column 0 (the plate at 0 V) carries no current and no slope.
        rowTerms(plate.data(), inverseRoot.data(), cols, Kp, mu, Ex, vg + Vct, e.data(), log1e.data(), power.data());
        for (int j = 1; j < cols; ++j) {
            const double E1 = (plate[j] / Kp) * log1e[j];
            const float c = static_cast<scalar>(power[j] * E1 * 2 / Kg);
            current[j] = c >= 1e-9f ? c : 0.0f;
            dVgk[j] = static_cast<scalar>(power[j] * (2 * Ex / Kg) * plate[j] * e[j] * inverseRoot[j] / (1 + e[j]));
        }
        // dIdVpk's terms are those without Vct, as its direct form has them.
        if (Vct != 0)
            rowTerms(plate.data(), inverseRoot.data(), cols, Kp, mu, Ex, vg, e.data(), log1e.data(), power.data());
        for (int j = 1; j < cols; ++j)
            dVpk[j] = static_cast<scalar>((log1e[j] / Kp - plateTerm[j] * (e[j] / (1 + e[j])) * vg * plate[j] * plate[j]) *
                                          power[j] * (2 * Ex / Kg));
    }
    return made;
}

scalar NKTriodeAnodeCurrent::lookup(const float* T, scalar vgk, scalar vpk, bool clampPlate) const {
    if (vpk <= 0 || VgkMin > vgk) return 0.0f;
    if (clampPlate) vpk = std::min(vpk, VpMax);
    return interpolate(T, locate(std::min(vgk, VgkMax), vpk), vpk);
}

scalar NKTriodeAnodeCurrent::current(scalar vgk, scalar vpk) {
    const scalar at = direct ? directCurrent(vgk, vpk) : lookup(currentTable, vgk, vpk, false);
    // Above VgkMax the current goes on along its slope there, so that it and its
    // derivatives (held at VgkMax) agree.
    if (vgk > VgkMax) return at + dIdVgk(vgk, vpk) * (vgk - VgkMax);
    return at;
}

scalar NKTriodeAnodeCurrent::dIdVgk(scalar vgk, scalar vpk) {
    if (!direct) return lookup(dVgkTable, vgk, vpk, true);
    if (vpk <= 0 || VgkMin > vgk) return 0.0f;
    const KorenTerms t(std::min(vpk, VpMax), std::min(vgk, VgkMax), Kp, Kvb, mu, Vct);
    return static_cast<scalar>(std::pow(t.E1, Ex - 1) * (Ex / Kg) * (1 + t.sgn) * t.Vp * t.e / ((1 + t.e) * t.s));
}

scalar NKTriodeAnodeCurrent::dIdVpk(scalar vgk, scalar vpk) {
    if (!direct) return lookup(dVpkTable, vgk, vpk, true);
    if (vpk <= 0 || VgkMin > vgk) return 0.0f;
    const KorenTerms t(std::min(vpk, VpMax), std::min(vgk, VgkMax), Kp, Kvb, mu, 0.0);  // without Vct, as the model states
    const double L = std::log(1 + t.e) / Kp;
    return static_cast<scalar>((L - std::pow(t.Vp * t.Vp + Kvb, -1.5) * (t.e / (1 + t.e)) * t.Vg * t.Vp * t.Vp) *
                               std::pow(t.E1, Ex - 1) * (Ex / Kg) * (1 + t.sgn));
}

const ScalarVectorPtr& NKTriodeAnodeCurrent::derivatives(scalar vgk, scalar vpk) {
    ScalarVector& d = *derivativeVector;
    if (direct) {
        d[0] = dIdVgk(vgk, vpk);
        d[1] = dIdVpk(vgk, vpk);
        return derivativeVector;
    }
    // Both derivative tables share the cell: locate it once, interpolate twice.
    if (vpk <= 0 || VgkMin > vgk) {
        d[0] = d[1] = 0.0f;
        return derivativeVector;
    }
    vpk = std::min(vpk, VpMax);
    const Cell c = locate(std::min(vgk, VgkMax), vpk);
    d[0] = interpolate(dVgkTable, c, vpk);
    d[1] = interpolate(dVpkTable, c, vpk);
    return derivativeVector;
}

void NKTriodeAnodeCurrent::evaluateDirect(scalar vgk, scalar vpk, scalar& current, scalar& dVgk, scalar& dVpk) {
    current = NKTriodeAnodeCurrent::current(vgk, vpk);
    dVgk = dIdVgk(vgk, vpk);
    dVpk = dIdVpk(vgk, vpk);
}

// ---- power-law grid current ----

void PowerLawGridCurrent::setProperty() {
    throw KELMException("PowerLawGridCurrent::setProperty is not yet implemented.");
}

void PowerLawTriodeGridCurrent::setProperty() {
    throw KELMException("PowerLawTriodeGridCurrent::setProperty is not yet implemented.");
}

void PowerLawGridCurrent::init(const PropertyMap& p) {
    p.readRequired("Vc", Vc, KELMException("PowerLawGridCurrent: Vc is not defined."));
    p.readRequired("Igc", Igc, KELMException("PowerLawGridCurrent: Igc is not defined."));
    p.readRequired("N", N, KELMException("PowerLawGridCurrent: A is not defined."));
    p.readOptional("VgkMax", VgkMax);
    p.readOptional("VgkMin", VgkMin);
    if (p.readOptional("DeltaVgk", deltaVgk)) inverseDeltaVgk = 1.0f / deltaVgk;
    p.readOptional("DoNotInterpolate", direct);
    if (!direct) buildTables();
}

void PowerLawGridCurrent::buildTables() {
    direct = true;
    const int length = static_cast<int>(VgkMax / deltaVgk) + 2;
    if (length < 2) throw InvalidArgumentException(str("PowerLawGridCurrent: VgkMax must be above 0. VgkMax=", VgkMax));
    currentTable.assign(length, 0.0f);
    derivativeTable.assign(length, 0.0f);
    for (int i = 0; i < length; ++i) {
        const float vgk = static_cast<float>(i * deltaVgk - Vc);
        const float c = current(vgk);
        currentTable[i] = c > 1e-9f ? c : 0.0f;
        derivativeTable[i] = dIdV(vgk);
    }
    currentTable[0] = 0.0f;
    currentTable[1] = 0.0f;
    direct = false;
}

scalar PowerLawGridCurrent::current(scalar vgk) {
    const float v = static_cast<float>(vgk + Vc);
    if (v < 0) return 0.0f;
    // Above VgkMax the current goes on along its slope there, which dIdV holds.
    if (v >= VgkMax) return static_cast<scalar>(Igc * (std::pow(VgkMax, N) + N * std::pow(VgkMax, N - 1) * (v - VgkMax)));
    if (direct) return static_cast<scalar>(Igc * std::pow(v, N));
    const int i = tableIndex(v * inverseDeltaVgk, 0, static_cast<int>(currentTable.size()) - 2);
    return currentTable[i] + (currentTable[i + 1] - currentTable[i]) * (v - i * deltaVgk) * inverseDeltaVgk;
}

void PowerLawGridCurrent::evaluateOutside(scalar vgk, scalar& i, scalar& slope) {
    i = current(vgk);
    slope = dIdV(vgk);
}

scalar PowerLawGridCurrent::dIdV(scalar vgk) {
    const float v = static_cast<float>(vgk + Vc);
    if (v < 0) return 0.0f;
    if (direct) return static_cast<scalar>((Igc * N) * std::pow(std::min(v, VgkMax), N - 1));
    if (v >= VgkMax) return derivativeTable.back();
    const int i = tableIndex(v * inverseDeltaVgk, 0, static_cast<int>(derivativeTable.size()) - 2);
    return derivativeTable[i] + (derivativeTable[i + 1] - derivativeTable[i]) * (v - i * deltaVgk) * inverseDeltaVgk;
}

} // namespace kelm
