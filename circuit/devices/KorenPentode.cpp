#include "circuit/devices/KorenPentode.h"

namespace kelm {

void KorenPentode::softplusLogExact(double z, double& value, double& slope) {
    // log(1 + e^z) as z + log(1 + e^-z) above 0, so that e^z never overflows.
    const double e = std::exp(-std::fabs(z));
    const double L = (z > 0 ? z : 0) + std::log1p(e);
    const double share = z > 0 ? 1 / (1 + e) : e / (1 + e);
    value = std::log(L);
    slope = share / L;
}

const HermiteTable<1>& KorenPentode::softplusLogTable() {
    // Steps of 1/2 where W is log z (its fourth derivative at most 6 / 40^4) and of 1/64
    // where it bends: the cubic pieces stay within about 2e-10 of W.
    static const HermiteTable<1> table = [] {
        constexpr int coarse = 720, fine = 80 * 64;
        HermiteTable<1> t;
        t.reserve(coarse, fine);
        t.build(-400, -40, 40, coarse, fine, [](double u, double* value, double* slope) {
            softplusLogExact(-u, value[0], slope[0]);
            slope[0] = -slope[0];
        });
        return t;
    }();
    return table;
}

} // namespace kelm
