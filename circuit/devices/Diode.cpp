#include "circuit/devices/Diode.h"

#include <algorithm>
#include <cmath>

#include "circuit/MNAContext.h"
#include "circuit/devices/Junction.h"
#include "circuit/devices/SemiconductorModels.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

void Diode::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                 const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    requireNodes(2, "Diode", "anode, cathode");
    std::string kind;
    const PropertyMap p = SemiconductorModels::resolve(*properties, name, "Diode", "D", "D", kind);
    declare("Is", is, 1e-14, positive);
    declare("N", n, 1, positive);
    declare("Rs", rs, 0, nonNegative);
    declare("Bv", bv, 0, nonNegative);
    declare("Ibv", ibv, 1e-3, positive);
    declare("Cjo", cjo, 0, nonNegative);
    declare("Vj", vj, 1, positive);
    declare("M", m, 0.5, nonNegative);
    declare("Fc", fc, 0.5, nonNegative);
    declare("Tt", tt, 0, nonNegative);
    // Without Bv there is no breakdown at all.
    breakdown = p.has("Bv");
    readParameters(p);
    if (breakdown && !(bv > 0)) throw InvalidArgumentException("Invalid Bv: it must be positive. Diode name=" + name);
    const int anode = addSeries(0, rs, "anode");
    layout.addPort(anode, 1);
    chargeCount = 1;
    finishPorts();
}

void Diode::derive() {
    point = Point();
    if (breakdown && !(bv > 0)) bv = 1e-3;
    // SPICE's own bounds on the charge parameters.
    fc = std::min(fc, 0.95);
    m = std::min(m, 0.9);
    vj = std::max(vj, 0.1);
    nvt = n * Junction::thermalVoltage();
    vcrit = Junction::criticalVoltage(is, nvt);
    charge[0].setDepletion(cjo, vj, m, fc);
    if (breakdown) findKnee();
}

void Diode::tabulate(bool build) {
    if (!build) {
        table.clear();
        return;
    }
    // The breakdown law takes over below -knee, the table stops there.
    tabulateJunction(table, nvt, is, breakdown ? -knee : -1e300,
                     [this](double v, double* values, double* slopes) { exact(v, values, slopes); });
}

void Diode::findKnee() {
    // The breakdown voltage moved so that the current at -Bv is Ibv, as SPICE finds it.
    double current = ibv;
    if (current < is * bv / nvt) {
        knee = bv;
        return;
    }
    double x = bv - nvt * std::log(1 + current / is);
    for (int k = 0; k < 25; ++k) {
        x = bv - nvt * std::log(current / is + 1 - x / nvt);
        const double reached = is * (std::exp((bv - x) / nvt) - 1 + x / nvt);
        if (std::fabs(reached - current) <= 1e-3 * current) break;
    }
    knee = x;
}

void Diode::exact(double v, double* values, double* slopes) const {
    values[0] = junctionCurrent(v, slopes[0]);
    double c;
    values[1] = charge[0].depletion(v, c) + tt * values[0];
    slopes[1] = c + tt * slopes[0];
}

void Diode::charges(const double* v, double* q) const {
    // A solution whose iteration stopped short may leave the junction far beyond the point it
    // was last evaluated at: the charge is taken no further than a step from there.
    const double vd = Junction::limit(v[0], last, nvt, vcrit);
    // The solution is a step within the solver's tolerance from where the iteration last
    // evaluated the junction: there the charge follows the tangent of that evaluation, off
    // from the curve by (dv / nvt)^2 / 2 of the step's own change at most.
    const double dv = vd - point.v;
    if (point.charged && std::fabs(dv) <= kTangentReach * nvt) {
        q[0] = point.q + point.dq * dv;
        return;
    }
    q[0] = at(vd, true).q;
}

const Diode::Point& Diode::compute(double vd, bool withCharge) const {
    double values[2] = {0, 0}, slopes[2] = {0, 0};
    point.v = vd;
    point.charged = true;
    if (!table.lookup(vd, values, slopes)) {
        if (withCharge) {
            exact(vd, values, slopes);
        } else {
            values[0] = junctionCurrent(vd, slopes[0]);
            point.charged = false;
        }
    }
    point.id = values[0];
    point.g = slopes[0];
    point.q = values[1];
    point.dq = slopes[1];
    return point;
}

void Diode::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    double vd = std::isfinite(v[0]) ? v[0] : last;
    if (firstOperatingPoint()) {
        vd = vcrit;
    } else if (breakdown && vd < std::min(0.0, -knee + 10 * nvt)) {
        // Into breakdown the step is limited as a forward step of the mirrored junction.
        const double mirrored = Junction::limit(-(vd + knee), -(last + knee), nvt, vcrit);
        vd = -(mirrored + knee);
    } else {
        vd = Junction::limit(vd, last, nvt, vcrit);
    }
    last = vd;
    v[0] = vd;
    const bool withCharge = charging();
    const Point& p = at(vd, withCharge);
    double id = p.id, g = p.g;
    if (withCharge) {
        const double rate = stepRate();
        id += charge[0].current(p.q, rate);
        g += rate * p.dq;
    }
    i[0] = id;
    di[0] = g;
    keepFinite<1>(i, di);
}

} // namespace kelm
