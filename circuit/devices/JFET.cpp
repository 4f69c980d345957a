#include "circuit/devices/JFET.h"

#include <algorithm>
#include <cmath>

#include "circuit/MNAContext.h"
#include "circuit/devices/Junction.h"
#include "circuit/devices/SemiconductorModels.h"

namespace kelm {

void JFET::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    requireNodes(3, "JFET", "drain, gate, source");
    std::string kind;
    const PropertyMap p = SemiconductorModels::resolve(*properties, name, "JFET", "NJF", "PJF", kind);
    sign = readPolarity(p, "N", "P", kind == "PJF") ? -1 : 1;
    declare("Beta", beta, 1e-4, positive);
    declare("Vto", vto, -2);
    declare("Lambda", lambda, 0, nonNegative);
    declare("Is", is, 1e-14, positive);
    declare("N", n, 1, positive);
    declare("Rd", rd, 0, nonNegative);
    declare("Rs", rs, 0, nonNegative);
    declare("Cgs", cgs, 0, nonNegative);
    declare("Cgd", cgd, 0, nonNegative);
    declare("Pb", pb, 1, positive);
    declare("Fc", fc, 0.5, nonNegative);
    readParameters(p);
    const int d = addSeries(0, rd, "drain");
    const int s = addSeries(2, rs, "source");
    layout.addPort(1, s);
    layout.addPort(d, s);
    chargeCount = 2;
    finishPorts();
}

void JFET::derive() {
    fc = std::min(fc, 0.95);
    nvt = n * Junction::thermalVoltage();
    vcrit = Junction::criticalVoltage(is, nvt);
    // The level-1 JFET grades its gate junctions by one half.
    charge[0].setDepletion(cgs, pb, 0.5, fc);
    charge[1].setDepletion(cgd, pb, 0.5, fc);
}

namespace {
// The channel current of the Shichman-Hodges law for a gate-to-source x and a drain-to-source
// y >= 0, with its slopes fx = dF/dx and fy = dF/dy.
double channel(double x, double y, double beta, double vto, double lambda, double& fx, double& fy) {
    const double xt = x - vto;
    if (xt <= 0) {
        fx = fy = 0;
        return 0;
    }
    const double betap = beta * (1 + lambda * y);
    if (xt >= y) {
        // Linear (triode) region.
        fx = 2 * betap * y;
        fy = betap * (2 * xt - 2 * y) + beta * lambda * y * (2 * xt - y);
        return betap * y * (2 * xt - y);
    }
    fx = 2 * betap * xt;
    fy = beta * lambda * xt * xt;
    return betap * xt * xt;
}
} // namespace

void JFET::currents(double vgs, double vds, double& ig, double& id, double* d) const {
    const double vgd = vgs - vds;
    double ggs, ggd;
    const double igs = Junction::current(vgs, is, nvt, ggs) + Junction::gmin * vgs;
    const double igd = Junction::current(vgd, is, nvt, ggd) + Junction::gmin * vgd;
    ggs += Junction::gmin;
    ggd += Junction::gmin;
    double cd, dgs, dds;
    if (vds >= 0) {
        cd = channel(vgs, vds, beta, vto, lambda, dgs, dds);
    } else {
        // Drain and source trade places: the channel sees vgd and -vds.
        double fx, fy;
        cd = -channel(vgd, -vds, beta, vto, lambda, fx, fy);
        dgs = -fx;
        dds = fx + fy;
    }
    ig = igs + igd;
    id = cd - igd;
    d[0] = ggs + ggd;
    d[1] = -ggd;
    d[2] = dgs - ggd;
    d[3] = dds + ggd;
}

void JFET::charges(const double* v, double* q) const {
    double c;
    q[0] = charge[0].depletion(sign * v[0], c);
    q[1] = charge[1].depletion(sign * (v[0] - v[1]), c);
}

void JFET::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    double vgs = sign * v[0], vgd = sign * (v[0] - v[1]);
    if (!std::isfinite(vgs) || !std::isfinite(vgd)) {
        vgs = lastVgs;
        vgd = lastVgd;
    }
    if (firstOperatingPoint()) {
        vgs = vgd = -1;
    } else {
        vgs = Junction::limit(vgs, lastVgs, nvt, vcrit);
        vgd = Junction::limit(vgd, lastVgd, nvt, vcrit);
        vgs = Junction::fetLimit(vgs, lastVgs, vto);
        vgd = Junction::fetLimit(vgd, lastVgd, vto);
    }
    lastVgs = vgs;
    lastVgd = vgd;
    const double vds = vgs - vgd;
    v[0] = sign * vgs;
    v[1] = sign * vds;
    double ig, id, d[4];
    currents(vgs, vds, ig, id, d);
    if (charging()) {
        const double rate = stepRate();
        double cs, cd;
        const double igs = charge[0].current(charge[0].depletion(vgs, cs), rate);
        const double igd = charge[1].current(charge[1].depletion(vgd, cd), rate);
        // Gate-drain charge: its current leaves the gate into the drain; vgd = vgs - vds.
        ig += igs + igd;
        id -= igd;
        d[0] += rate * (cs + cd);
        d[1] -= rate * cd;
        d[2] -= rate * cd;
        d[3] += rate * cd;
    }
    i[0] = sign * ig;
    i[1] = sign * id;
    for (int k = 0; k < 4; ++k) di[k] = d[k];
    keepFinite<2>(i, di);
}

} // namespace kelm
