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

void BJT::transport(double vbe, double vbc, double& ib, double& ic, double* d) const {
    double gbe, gbc, gben, gbcn;
    const double cbe = Junction::current(vbe, is, nf * vt, gbe);
    const double cbc = Junction::current(vbc, is, nr * vt, gbc);
    const double cben = leakage(vbe, ise, ne * vt, gben);
    const double cbcn = leakage(vbc, isc, nc * vt, gbcn);
    // The base charge: Early effect (q1) and high injection (q2).
    const double invVaf = vaf > 0 ? 1 / vaf : 0, invVar = var > 0 ? 1 / var : 0;
    const double q1 = 1 / (1 - invVaf * vbc - invVar * vbe);
    double qb, dqbdve, dqbdvc;
    if (ikf <= 0 && ikr <= 0) {
        qb = q1;
        dqbdve = q1 * qb * invVar;
        dqbdvc = q1 * qb * invVaf;
    } else {
        const double oik = ikf > 0 ? 1 / ikf : 0, oikr = ikr > 0 ? 1 / ikr : 0;
        const double q2 = oik * cbe + oikr * cbc;
        const double arg = std::max(0.0, 1 + 4 * q2);
        const double root = arg != 0 ? std::sqrt(arg) : 1;
        qb = q1 * (1 + root) / 2;
        dqbdve = q1 * (qb * invVar + oik * gbe / root);
        dqbdvc = q1 * (qb * invVaf + oikr * gbc / root);
    }
    const double transfer = (cbe - cbc) / qb;
    ic = transfer - cbc / br - cbcn;
    ib = cbe / bf + cben + cbc / br + cbcn;
    d[0] = gbe / bf + gben;
    d[1] = gbc / br + gbcn;
    d[2] = (gbe - transfer * dqbdve) / qb;
    d[3] = (-gbc - transfer * dqbdvc) / qb - gbc / br - gbcn;
}

double BJT::emitterCharge(double vbe, double vbc, double& dvbe, double& dvbc) const {
    double c;
    const double depletion = charge[0].depletion(vbe, c);
    dvbe = c;
    dvbc = 0;
    if (tf <= 0) return depletion;
    double g;
    double cbe = Junction::current(vbe, is, nf * vt, g);
    if (vbe > 0) {
        // The diffusion charge follows the transfer current, Is (exp - 1) / qb.
        const double invVaf = vaf > 0 ? 1 / vaf : 0, invVar = var > 0 ? 1 / var : 0;
        const double q1 = 1 / (1 - invVaf * vbc - invVar * vbe);
        double qb = q1, dqbdve = q1 * q1 * invVar, dqbdvc = q1 * q1 * invVaf;
        if (ikf > 0 || ikr > 0) {
            double gbc;
            const double cbc = Junction::current(vbc, is, nr * vt, gbc);
            const double oik = ikf > 0 ? 1 / ikf : 0, oikr = ikr > 0 ? 1 / ikr : 0;
            const double arg = std::max(0.0, 1 + 4 * (oik * cbe + oikr * cbc));
            const double root = arg != 0 ? std::sqrt(arg) : 1;
            qb = q1 * (1 + root) / 2;
            dqbdve = q1 * (qb * invVar + oik * g / root);
            dqbdvc = q1 * (qb * invVaf + oikr * gbc / root);
        }
        cbe /= qb;
        g = (g - cbe * dqbdve) / qb;
        dvbc = -tf * cbe * dqbdvc / qb;
    }
    dvbe += tf * g;
    return depletion + tf * cbe;
}

double BJT::collectorCharge(double vbc, double& dvbc) const {
    double c, g;
    const double depletion = charge[1].depletion(vbc, c);
    const double cbc = tr > 0 ? Junction::current(vbc, is, nr * vt, g) : (g = 0, 0.0);
    dvbc = c + tr * g;
    return depletion + tr * cbc;
}

void BJT::charges(const double* v, double* q) const {
    // A solution whose iteration stopped short may leave a junction far beyond the point the
    // device was last evaluated at: the charges are taken no further than a step from there.
    const double vbe = Junction::limit(sign * v[0], lastVbe, vt, vcrit);
    const double vbc = Junction::limit(sign * (v[0] - v[1]), lastVbc, vt, vcrit);
    double a, b;
    q[0] = emitterCharge(vbe, vbc, a, b);
    q[1] = collectorCharge(vbc, a);
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
    double ib, ic, d[4];
    transport(vbe, vbc, ib, ic, d);
    if (charging()) {
        const double rate = stepRate();
        double qeE, qeC, qcC;
        const double qe = emitterCharge(vbe, vbc, qeE, qeC);
        const double qc = collectorCharge(vbc, qcC);
        const double ie = charge[0].current(qe, rate), icb = charge[1].current(qc, rate);
        // The base-emitter charge's current flows from base to emitter, the base-collector
        // charge's from base to collector.
        ib += ie + icb;
        ic -= icb;
        d[0] += rate * qeE;
        d[1] += rate * (qeC + qcC);
        d[3] -= rate * qcC;
    }
    // On the ports vbe = v0, vbc = v0 - v1; the polarity's sign enters twice in the slopes.
    i[0] = sign * ib;
    i[1] = sign * ic;
    di[0] = d[0] + d[1];
    di[1] = -d[1];
    di[2] = d[2] + d[3];
    di[3] = -d[3];
    keepFinite(i, di);
}

} // namespace kelm
