#include "circuit/devices/BJT.h"

#include <algorithm>
#include <cmath>

#include "circuit/MNAContext.h"
#include "circuit/devices/Junction.h"
#include "circuit/devices/SemiconductorModels.h"

namespace kelm {

void BJT::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
               const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    requireNodes(3, "BJT", "collector, base, emitter");
    std::string kind;
    const PropertyMap p = SemiconductorModels::resolve(*properties, name, "BJT", "NPN", "PNP", kind);
    sign = readPolarity(p, "NPN", "PNP", kind == "PNP") ? -1 : 1;
    declare("Is", is, 1e-16, positive);
    declare("Bf", bf, 100, positive);
    declare("Br", br, 1, positive);
    declare("Nf", nf, 1, positive);
    declare("Nr", nr, 1, positive);
    declare("Vaf", vaf, 0, nonNegative);  // 0: no Early effect
    declare("Var", var, 0, nonNegative);
    declare("Ikf", ikf, 0, nonNegative);  // 0: no roll-off
    declare("Ikr", ikr, 0, nonNegative);
    declare("Ise", ise, 0, nonNegative);
    declare("Ne", ne, 1.5, positive);
    declare("Isc", isc, 0, nonNegative);
    declare("Nc", nc, 2, positive);
    declare("Rb", rb, 0, nonNegative);
    declare("Rc", rc, 0, nonNegative);
    declare("Re", re, 0, nonNegative);
    declare("Cje", cje, 0, nonNegative);
    declare("Vje", vje, 0.75, positive);
    declare("Mje", mje, 0.33, nonNegative);
    declare("Cjc", cjc, 0, nonNegative);
    declare("Vjc", vjc, 0.75, positive);
    declare("Mjc", mjc, 0.33, nonNegative);
    declare("Fc", fc, 0.5, nonNegative);
    declare("Tf", tf, 0, nonNegative);
    declare("Tr", tr, 0, nonNegative);
    readParameters(p);
    const int c = addSeries(0, rc, "collector");
    const int b = addSeries(1, rb, "base");
    const int e = addSeries(2, re, "emitter");
    layout.addPort(b, e);
    layout.addPort(c, e);
    chargeCount = 2;
    finishPorts();
}

void BJT::derive() {
    fc = std::min(fc, 0.9999);
    mje = std::min(mje, 0.9);
    mjc = std::min(mjc, 0.9);
    vt = Junction::thermalVoltage();
    vcrit = Junction::criticalVoltage(is, vt);
    charge[0].setDepletion(cje, vje, mje, fc);
    charge[1].setDepletion(cjc, vjc, mjc, fc);
    nfVt = nf * vt;
    nrVt = nr * vt;
    neVt = ne * vt;
    ncVt = nc * vt;
    invVaf = vaf > 0 ? 1 / vaf : 0;
    invVar = var > 0 ? 1 / var : 0;
    invIkf = ikf > 0 ? 1 / ikf : 0;
    invIkr = ikr > 0 ? 1 / ikr : 0;
    invBf = 1 / bf;
    invBr = 1 / br;
    point = Point();
}

void BJT::tabulate(bool build) {
    if (!build) {
        emitterTable.clear();
        collectorTable.clear();
        return;
    }
    // Each junction's table is as fine as the steeper of its two exponentials.
    const double emitterVt = ise > 0 ? std::min(nfVt, neVt) : nfVt;
    const double collectorVt = isc > 0 ? std::min(nrVt, ncVt) : nrVt;
    tabulateJunction(emitterTable, emitterVt, is, -1e300,
                     [this](double v, double* values, double* slopes) { junction(v, true, values, slopes); });
    tabulateJunction(collectorTable, collectorVt, is, -1e300,
                     [this](double v, double* values, double* slopes) { junction(v, false, values, slopes); });
}

namespace {
// A junction's current with SPICE's reverse tail, and the leakage of a second one (zero
// saturation current: none) with the minimum conductance across it.
double leakage(double v, double is, double nvt, double& g) {
    double i = 0;
    g = 0;
    if (is > 0) i = Junction::current(v, is, nvt, g);
    g += Junction::gmin;
    return i + Junction::gmin * v;
}
} // namespace

void BJT::junction(double v, bool emitter, double* values, double* slopes) const {
    values[0] = Junction::current(v, is, emitter ? nfVt : nrVt, slopes[0]);
    values[1] = emitter ? leakage(v, ise, neVt, slopes[1]) : leakage(v, isc, ncVt, slopes[1]);
    values[2] = charge[emitter ? 0 : 1].depletion(v, slopes[2]);
}

void BJT::compute(double vbe, double vbc, bool withCharges, Point& p) const {
    // Per junction: the transport current, the leakage and the depletion charge, each with
    // its slope.
    double e[3], de[3], c[3], dc[3];
    if (!emitterTable.lookup(vbe, e, de)) junction(vbe, true, e, de);
    if (!collectorTable.lookup(vbc, c, dc)) junction(vbc, false, c, dc);
    const double cbe = e[0], gbe = de[0], cben = e[1], gben = de[1];
    const double cbc = c[0], gbc = dc[0], cbcn = c[1], gbcn = dc[1];
    // The base charge: Early effect (q1) and high injection (q2); three divisions in all,
    // the rest by their reciprocals.
    const double early = 1 - invVaf * vbc - invVar * vbe;
    const double q1 = 1 / early;
    double qb, invQb, dqbdve, dqbdvc;
    if (ikf <= 0 && ikr <= 0) {
        qb = q1;
        invQb = early;
        dqbdve = q1 * qb * invVar;
        dqbdvc = q1 * qb * invVaf;
    } else {
        const double q2 = invIkf * cbe + invIkr * cbc;
        const double arg = std::max(0.0, 1 + 4 * q2);
        const double root = arg != 0 ? std::sqrt(arg) : 1;
        const double invRoot = 1 / root;
        qb = q1 * (1 + root) / 2;
        invQb = 2 * early / (1 + root);
        dqbdve = q1 * (qb * invVar + invIkf * gbe * invRoot);
        dqbdvc = q1 * (qb * invVaf + invIkr * gbc * invRoot);
    }
    const double transfer = (cbe - cbc) * invQb;
    p.ic = transfer - cbc * invBr - cbcn;
    p.ib = cbe * invBf + cben + cbc * invBr + cbcn;
    p.d[0] = gbe * invBf + gben;
    p.d[1] = gbc * invBr + gbcn;
    p.d[2] = (gbe - transfer * dqbdve) * invQb;
    p.d[3] = (-gbc - transfer * dqbdvc) * invQb - gbc * invBr - gbcn;
    p.charged = withCharges;
    if (!withCharges) return;
    // The base-emitter charge: depletion, and diffusion following the transfer current
    // Is (exp - 1) / qb where the junction conducts.
    const double depletion = e[2];
    p.qeVbe = de[2];
    p.qeVbc = 0;
    p.qe = depletion;
    if (tf > 0) {
        double diffusion = cbe, g = gbe;
        if (vbe > 0) {
            diffusion = cbe * invQb;
            g = (gbe - diffusion * dqbdve) * invQb;
            p.qeVbc = -tf * diffusion * dqbdvc * invQb;
        }
        p.qeVbe += tf * g;
        p.qe = depletion + tf * diffusion;
    }
    // The base-collector charge: depletion, and diffusion following the reverse current.
    p.qcVbc = dc[2] + tr * (tr > 0 ? gbc : 0);
    p.qc = c[2] + tr * (tr > 0 ? cbc : 0);
}

void BJT::transport(double vbe, double vbc, double& ib, double& ic, double* d) const {
    Point p;
    compute(vbe, vbc, false, p);
    ib = p.ib;
    ic = p.ic;
    for (int k = 0; k < 4; ++k) d[k] = p.d[k];
}

void BJT::charges(const double* v, double* q) const {
    // A solution whose iteration stopped short may leave a junction far beyond the point the
    // device was last evaluated at: the charges are taken no further than a step from there.
    const double vbe = Junction::limit(sign * v[0], lastVbe, vt, vcrit);
    const double vbc = Junction::limit(sign * (v[0] - v[1]), lastVbc, vt, vcrit);
    // Within a small step of the iteration's last evaluation, along its tangent (as the
    // diode's charge).
    const double dbe = vbe - point.vbe, dbc = vbc - point.vbc;
    const double reach = kTangentReach * vt;
    if (point.charged && std::fabs(dbe) <= reach && std::fabs(dbc) <= reach) {
        q[0] = point.qe + point.qeVbe * dbe + point.qeVbc * dbc;
        q[1] = point.qc + point.qcVbc * dbc;
        return;
    }
    const Point& p = at(vbe, vbc, true);
    q[0] = p.qe;
    q[1] = p.qc;
}

void BJT::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    double vbe = sign * v[0], vbc = sign * (v[0] - v[1]);
    if (!std::isfinite(vbe) || !std::isfinite(vbc)) {
        vbe = lastVbe;
        vbc = lastVbc;
    }
    if (firstOperatingPoint()) {
        vbe = vcrit;
        vbc = 0;
    } else {
        vbe = Junction::limit(vbe, lastVbe, vt, vcrit);
        vbc = Junction::limit(vbc, lastVbc, vt, vcrit);
    }
    lastVbe = vbe;
    lastVbc = vbc;
    v[0] = sign * vbe;
    v[1] = sign * (vbe - vbc);
    const bool withCharges = charging();
    const Point& p = at(vbe, vbc, withCharges);
    double ib = p.ib, ic = p.ic, d[4] = {p.d[0], p.d[1], p.d[2], p.d[3]};
    if (withCharges) {
        const double rate = stepRate();
        const double ie = charge[0].current(p.qe, rate), icb = charge[1].current(p.qc, rate);
        // The base-emitter charge's current flows from base to emitter, the base-collector
        // charge's from base to collector.
        ib += ie + icb;
        ic -= icb;
        d[0] += rate * p.qeVbe;
        d[1] += rate * (p.qeVbc + p.qcVbc);
        d[3] -= rate * p.qcVbc;
    }
    // On the ports vbe = v0, vbc = v0 - v1; the polarity's sign enters twice in the slopes.
    i[0] = sign * ib;
    i[1] = sign * ic;
    di[0] = d[0] + d[1];
    di[1] = -d[1];
    di[2] = d[2] + d[3];
    di[3] = -d[3];
    keepFinite<2>(i, di);
}

} // namespace kelm
