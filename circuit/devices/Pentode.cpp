#include "circuit/devices/Pentode.h"

#include <algorithm>
#include <cmath>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "circuit/devices/TubeTypes.h"

namespace kelm {

enum { P = 0, S = 1, G = 2, K = 3 };

void Pentode::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                   const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 4)
        throw InvalidArgumentException("Pentode must have four nodes: plate, screen, grid, cathode. Pentode name=" + name);
    PropertyMap local = *properties;
    std::string type;
    if (local.readOptional("Type", type)) {
        auto it = TubeTypes::pentodes().find(type);
        if (it == TubeTypes::pentodes().end()) throw InvalidArgumentException("Invalid built-in pentode type: " + type);
        for (auto& entry : it->second()) local.insert(entry);
    }
    grid.reset(new PowerLawPentodeGridCurrent());
    grid->init(local);
    anode.reset(new NKPentodeAnodeCurrent());
    anode->init(local);
    screen.reset(new NKPentodeScreenCurrent());
    screen->init(local);
    law = anode->onePass();
    jacobian.resize(4, 4);
    layout = PortLayout();
    layout.addPort(G, K);
    layout.addPort(P, K);
    layout.addPort(S, K);
}

void Pentode::evaluatePorts(double* v, double* i, double* di, double*, double*) {
    // The plate and the screen not below the cathode, the plate within a factor of two of
    // its last value (as the triode's ports).
    const double vgk = v[0];
    double vpk = std::max(v[1], 0.0);
    if (lastVpk > 0) vpk = std::min(std::max(vpk, lastVpk * 0.5), lastVpk * 2.0);
    lastVpk = vpk;
    // The terminal form's memory of the plate (its own limiter's) is stale from here on: its
    // next evaluation, where another kernel takes over, starts unlimited.
    lastPlate = 0;
    const double vsk = std::max(v[2], 0.0);
    v[1] = vpk;
    v[2] = vsk;
    Vg = static_cast<scalar>(vgk);
    Vp = static_cast<scalar>(vpk);
    Vs = static_cast<scalar>(vsk);
    Vk = 0;
    KorenPentode::Currents c;
    law.evaluate(vgk, vpk, vsk, c);
    scalar ig, gg;
    grid->evaluate(static_cast<scalar>(vgk), ig, gg);
    i[0] = ig;
    i[1] = c.ip;
    i[2] = c.is;
    di[0] = gg;
    di[1] = di[2] = di[7] = 0;
    di[3] = c.ipVgk;
    di[4] = c.ipVpk;
    di[5] = c.ipVsk;
    di[6] = c.isVgk;
    di[8] = c.isVsk;
    // One test for all twelve first: their sum is finite where each is, unless it overflows.
    double sum = i[0] + i[1] + i[2];
    for (int k = 0; k < 9; ++k) sum += di[k];
    if (!std::isfinite(sum)) checkPorts(i, di);
}

void Pentode::checkPorts(const double* i, const double* di) const {
    const double values[] = {i[1], i[2], i[0], di[3], di[4], di[5], di[6], di[8], di[0]};
    const char* names[] = {"ip", "is", "ig", "dIpdVgk", "dIpdVpk", "dIpdVsk", "dIsdVgk", "dIsdVsk", "dIgdV"};
    for (int k = 0; k < 9; ++k)
        if (!std::isfinite(values[k]))
            throw KELMException(str("Pentode: ", names[k], " is not a valid number: ", values[k], ", vg=", Vg,
                                    ", vp=", Vp, ", vk=", Vk, ", vs=", Vs));
}

void Pentode::setNodes(const NodeIndices& n) {
    Component::setNodes(n);
    for (int i = 0; i < 4; ++i) valid[i] = (*n)[i] >= 0;
}

void Pentode::limit(scalar* x) {
    const std::vector<int>& n = *nodes;
    Vp = valid[P] ? x[n[P]] : 0.0f;
    Vs = valid[S] ? x[n[S]] : 0.0f;
    Vg = valid[G] ? x[n[G]] : 0.0f;
    Vk = valid[K] ? x[n[K]] : 0.0f;
    if (Vp < 0) Vp = 0;
    if (Vs < 0) Vs = 0;
    if (Vk < 0) Vk = 0;
    Vp = std::max(Vp, std::max(Vg, Vk));
    if (lastPlate > 0) Vp = std::min(std::max(Vp, lastPlate * 0.5f), lastPlate * 2.0f);
    lastPlate = Vp;
    if (valid[K]) x[n[K]] = Vk;
    if (valid[P]) x[n[P]] = Vp;
    if (valid[S]) x[n[S]] = Vs;
}

void Pentode::check(scalar value, const char* what) const {
    if (!std::isfinite(value))
        throw KELMException(str("Pentode: ", what, " is not a valid number: ", value, ", vg=", Vg, ", vp=", Vp,
                                ", vk=", Vk, ", vs=", Vs));
}

scalar* Pentode::getRhs(scalar* x) {
    limit(x);
    const scalar vgk = Vg - Vk, vpk = Vp - Vk, vsk = Vs - Vk;
    const scalar ip = anode->current(vgk, vpk, vsk);
    const scalar is = screen->current(vgk, vpk, vsk);
    const scalar ig = grid->current(vgk, vpk, vsk);
    rhs[P] = -ip;
    rhs[S] = -is;
    rhs[G] = -ig;
    rhs[K] = ip + is + ig;
    check(rhs[P], "rhs[p]");
    check(rhs[G], "rhs[g]");
    check(rhs[S], "rhs[s]");
    check(rhs[K], "rhs[k]");
    return rhs;
}

scalar** Pentode::getJacobian(scalar* x) {
    limit(x);
    const scalar vgk = Vg - Vk, vpk = Vp - Vk, vsk = Vs - Vk;
    const ScalarVector& a = *anode->derivatives(vgk, vpk, vsk);
    const ScalarVector& s = *screen->derivatives(vgk, vpk, vsk);
    const scalar g = grid->dIdVgk(vgk, vpk, vsk);
    const scalar a0 = a[0], a1 = a[1], a2 = a[2], s0 = s[0], s2 = s[2];
    check(g, "dIgdV");
    check(a0, "dIpdVgk");
    check(a1, "dIpdVpk");
    check(a2, "dIpdVsk");
    check(s0, "dIsdVgk");
    check(s2, "dIsdVsk");
    const scalar rows[4][4] = {{a1, a2, a0, -a0 - a1 - a2},
                               {0, s2, s0, -s0 - s2},
                               {0, 0, g, -g},
                               {-a1, -s2, -a0 - g - s0, a0 + a1 + a2 + g + s0 + s2}};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) jacobian(r, c) = rows[r][c];
    return jacobian.rows();
}

} // namespace kelm
