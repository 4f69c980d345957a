#include "circuit/devices/MOSFET.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "circuit/devices/Junction.h"
#include "circuit/devices/SemiconductorModels.h"

namespace kelm {

namespace {
// Level 1's default junction saturation current (A).
constexpr double kBodySaturation = 1e-14;
} // namespace

void MOSFET::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                  const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    requireNodes(3, "MOSFET", "drain, gate, source");
    std::string kind;
    const PropertyMap p = SemiconductorModels::resolve(*properties, name, "MOSFET", "NMOS", "PMOS", kind);
    sign = readPolarity(p, "N", "P", kind == "PMOS") ? -1 : 1;
    declare("Kp", kp, 2e-5, positive);
    declare("Vto", vto, 0);
    declare("Lambda", lambda, 0, nonNegative);
    declare("W", w, 1e-4, positive);
    declare("L", l, 1e-4, positive);
    readParameters(p);
    layout.addPort(1, 2);
    layout.addPort(0, 2);
    finishPorts();
}

void MOSFET::derive() {
    beta = kp * w / l;
    vt = Junction::thermalVoltage();
    vcrit = Junction::criticalVoltage(kBodySaturation, vt);
}

namespace {
// Level 1's channel for a gate-to-source x and drain-to-source y >= 0, with its slopes.
double channel(double x, double y, double beta, double vto, double lambda, double& fx, double& fy) {
    const double xt = x - vto;
    if (xt <= 0) {
        fx = fy = 0;
        return 0;
    }
    const double modulation = 1 + lambda * y;
    if (y < xt) {
        fx = beta * y * modulation;
        fy = beta * (xt - y) * modulation + beta * lambda * y * (xt - y / 2);
        return beta * y * (xt - y / 2) * modulation;
    }
    fx = beta * xt * modulation;
    fy = beta * lambda * xt * xt / 2;
    return beta / 2 * xt * xt * modulation;
}
} // namespace

double MOSFET::drainCurrent(double vgs, double vds, double& gm, double& gds) const {
    double id;
    if (vds >= 0) {
        id = channel(vgs, vds, beta, vto, lambda, gm, gds);
    } else {
        double fx, fy;
        id = -channel(vgs - vds, -vds, beta, vto, lambda, fx, fy);
        gm = -fx;
        gds = fx + fy;
    }
    // The drain-body junction, body on the source: forward where vds < 0.
    double g;
    const double ibd = Junction::current(-vds, kBodySaturation, vt, g) - Junction::gmin * vds;
    gds += g + Junction::gmin;
    return id - ibd;
}

void MOSFET::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    double vgs = sign * v[0], vds = sign * v[1];
    if (!std::isfinite(vgs) || !std::isfinite(vds)) {
        vgs = lastVgs;
        vds = lastVds;
    }
    // SPICE's level-1 limiting: the gate on the side that is the source now, then vds.
    if (lastVds >= 0) {
        const double vgd = vgs - vds;
        vgs = Junction::fetLimit(vgs, lastVgs, vto);
        vds = Junction::drainSourceLimit(vgs - vgd, lastVds);
    } else {
        const double vgd = Junction::fetLimit(vgs - vds, lastVgs - lastVds, vto);
        vds = -Junction::drainSourceLimit(-(vgs - vgd), -lastVds);
        vgs = vgd + vds;
    }
    if (vds < 0) {
        // The body junction conducts: its step is limited as a junction's.
        const double vgd = vgs - vds;
        vds = -Junction::limit(-vds, -lastVds, vt, vcrit);
        vgs = vgd + vds;
    }
    lastVgs = vgs;
    lastVds = vds;
    v[0] = sign * vgs;
    v[1] = sign * vds;
    double gm, gds;
    const double id = drainCurrent(vgs, vds, gm, gds);
    i[0] = 0;
    i[1] = sign * id;
    di[0] = 0;
    di[1] = 0;
    di[2] = gm;
    di[3] = gds;
    keepFinite<2>(i, di);
}

} // namespace kelm
