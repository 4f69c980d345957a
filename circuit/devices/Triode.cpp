#include "circuit/devices/Triode.h"

#include <algorithm>

#include "engine/InvalidArgumentException.h"
#include "circuit/devices/NKTriodeAnodeCurrent.h"
#include "circuit/devices/PowerLawTriodeGridCurrent.h"
#include "circuit/devices/TubeTypes.h"

namespace kelm {

void Triode::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                  const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 3)
        throw InvalidArgumentException("Triode must have three nodes: plate, grid, cathode. Triode name=" + name);
    PropertyMap local = *properties;
    std::string type;
    if (local.readOptional("Type", type)) {
        auto it = TubeTypes::triodes().find(type);
        if (it == TubeTypes::triodes().end()) throw InvalidArgumentException("Invalid built-in triode type: " + type);
        for (auto& entry : it->second()) local.insert(entry);  // keeps the element's own values
    }
    std::string model = "PowerLaw";
    local.readOptional("GridCurrent", model);
    grid.reset(new PowerLawTriodeGridCurrent());
    grid->init(local);
    model = "NormanKoren";
    local.readOptional("AnodeCurrent", model);
    anode.reset(new NKTriodeAnodeCurrent());
    anode->init(local);
    jacobian.resize(3, 3);
    layout = PortLayout();
    layout.addPort(1, 2);
    layout.addPort(0, 2);
}

void Triode::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    // The plate not below the cathode and within a factor of two of its last value. (The
    // terminal form also holds the plate at or above the grid; on the ports that rule would
    // refuse the solutions of an overdriven stage whose plate falls below its grid.)
    // Above its knee the grid conducts like a junction, by a power law: a step from little
    // current into much overshoots, and Newton's method then comes back from the steep side
    // only slowly. Beyond the knee the grid rises at most by half its height above the knee
    // and 0.1 V per step.
    double vgk = v[0];
    const double knee = grid->knee();
    if (vgk > lastVgk && vgk > knee) vgk = std::min(vgk, knee + 1.5 * std::max(lastVgk - knee, 0.0) + 0.1);
    lastVgk = vgk;
    v[0] = vgk;
    double vpk = std::max(v[1], 0.0);
    if (lastVpk > 0) vpk = std::min(std::max(vpk, lastVpk * 0.5), lastVpk * 2.0);
    lastVpk = vpk;
    v[1] = vpk;
    // The terminal form's memory of the plate (its own limiter's) is stale from here on: its
    // next evaluation, where another kernel takes over, starts unlimited.
    lastPlate = 0;
    scalar ip, ig, dIpdVgk, dIpdVpk, dIgdVgk;
    anode->evaluateExact(static_cast<scalar>(vgk), static_cast<scalar>(vpk), ip, dIpdVgk, dIpdVpk);
    grid->evaluateExact(static_cast<scalar>(vgk), ig, dIgdVgk);
    i[0] = ig;
    i[1] = ip;
    di[0] = dIgdVgk;
    di[1] = 0;
    di[2] = dIpdVgk;
    di[3] = dIpdVpk;
}

void Triode::setNodes(const NodeIndices& n) {
    Component::setNodes(n);
    plateValid = (*n)[0] >= 0;
    gridValid = (*n)[1] >= 0;
    cathodeValid = (*n)[2] >= 0;
    plate = (*n)[0];
    grid_ = (*n)[1];
    cathode = (*n)[2];
}

void Triode::fillRhs(scalar ip, scalar ig) {
    rhs[0] = -ip;
    rhs[1] = -ig;
    rhs[2] = ip + ig;
}

void Triode::fillJacobian(scalar a, scalar b, scalar c) {
    jacobian(0, 0) = b;
    jacobian(0, 1) = a;
    jacobian(0, 2) = -a - b;
    jacobian(1, 0) = 0;
    jacobian(1, 1) = c;
    jacobian(1, 2) = -c;
    jacobian(2, 0) = -b;
    jacobian(2, 1) = -a - c;
    jacobian(2, 2) = a + b + c;
}

scalar* Triode::getRhs(scalar* x) {
    scalar vgk, vpk;
    limit(x, vgk, vpk);
    fillRhs(anode->current(vgk, vpk), grid->current(vgk, vpk));
    return rhs;
}

scalar** Triode::getJacobian(scalar* x) {
    scalar vgk, vpk;
    limit(x, vgk, vpk);
    const ScalarVector& d = *anode->derivatives(vgk, vpk);
    fillJacobian(d[0], d[1], grid->dIdVgk(vgk, vpk));
    return jacobian.rows();
}

scalar* Triode::evaluate(scalar* x, scalar**& stamp) {
    const Ports p = evaluateAt(x);
    fillRhs(p.ip, p.ig);
    fillJacobian(p.dIpdVgk, p.dIpdVpk, p.dIgdVgk);
    stamp = jacobian.rows();
    return rhs;
}

} // namespace kelm
