// The built-in tube types against the typical operating points of their data sheets, their
// grid current, and the names that are no type.
#include <cmath>
#include <memory>

#include "circuit/MNAContext.h"
#include "circuit/devices/Pentode.h"
#include "circuit/devices/Triode.h"
#include "circuit/devices/TubeTypes.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// A tube of the given type alone in a context, evaluated at terminal voltages (cathode at 0 V).
// Each evaluation uses a fresh element, so that the plate limiter holds nothing.
template <typename Tube>
std::vector<float> evaluateRhs(const PropertyMap& props, std::vector<float> x) {
    auto ctx = std::make_shared<MNAContext>();
    auto names = std::make_shared<std::vector<std::string>>();
    for (size_t i = 0; i < x.size(); ++i) names->push_back("n" + std::to_string(i));
    std::unique_ptr<Tube> owned(new Tube());  // freed when init refuses the properties
    Tube* tube = owned.get();
    tube->init("tube", std::make_shared<PropertyMap>(props), names, ctx);
    ctx->addElement(owned.release());
    ctx->init();
    const float* rhs = tube->getRhs(x.data());
    return std::vector<float>(rhs, rhs + x.size());
}

// Plate current (A) of a triode (nodes P, G, K) or a pentode (P, S, G, K); vsk is unused for a triode.
double plateCurrent(const std::string& type, bool pentode, double vgk, double vpk, double vsk, bool direct = false) {
    PropertyMap p{{"Type", type}};
    if (direct) p["DoNotInterpolate"] = "true";
    if (pentode) return -evaluateRhs<Pentode>(p, {float(vpk), float(vsk), float(vgk), 0})[0];
    return -evaluateRhs<Triode>(p, {float(vpk), float(vgk), 0})[0];
}

double gridCurrent(const std::string& type, bool pentode, double vgk) {
    PropertyMap p{{"Type", type}};
    if (pentode) return -evaluateRhs<Pentode>(p, {250, 250, float(vgk), 0})[2];
    return -evaluateRhs<Triode>(p, {250, float(vgk), 0})[1];
}

struct OperatingPoint {
    const char* type;
    bool pentode;
    double vpk, vsk, vgk;  // volts; vsk only for pentodes
    double ip, gm;         // the data sheet's typical plate current (mA) and transconductance (mA/V)
};

// Typical characteristics of the data sheets (class A1): RCA 12AU7, 6SN7GT, 6SL7GT and
// 6V6GT; Mullard ECC81 (12AT7), EF86 and EL84.
const OperatingPoint kDataSheet[] = {
    {"12AT7", false, 250, 0, -2, 10.0, 5.5},   {"12AT7", false, 170, 0, -1, 8.5, 5.9},
    {"12AU7", false, 250, 0, -8.5, 10.5, 2.2}, {"12AU7", false, 100, 0, 0, 11.8, 3.1},
    {"6SN7", false, 250, 0, -8, 9.0, 2.6},     {"6SN7", false, 90, 0, 0, 10.0, 3.0},
    {"6SL7", false, 250, 0, -2, 2.3, 1.6},     {"EF86", true, 250, 140, -2, 3.0, 2.0},
    {"EL84", true, 250, 250, -7.3, 48.0, 11.3}, {"6V6", true, 250, 250, -12.5, 45.0, 4.1},
    {"6V6", true, 315, 225, -13, 34.0, 3.75},
};

} // namespace

// A Koren fit is a fit: the plate current within 10 % of the data sheet's typical value and
// the transconductance within 15 %. A wrong or swapped parameter moves them by far more.
TEST(CircuitTubeTypes, PlateCurrentsNearTheDataSheetsTypicalOperation) {
    for (const OperatingPoint& o : kDataSheet) {
        const double ip = plateCurrent(o.type, o.pentode, o.vgk, o.vpk, o.vsk);
        const double h = 0.05;
        const double gm = (plateCurrent(o.type, o.pentode, o.vgk + h, o.vpk, o.vsk) -
                           plateCurrent(o.type, o.pentode, o.vgk - h, o.vpk, o.vsk)) /
                          (2 * h);
        EXPECT_NEAR(o.ip, 1e3 * ip, 0.10 * o.ip) << o.type << " at " << o.vpk << " V, " << o.vgk << " V";
        EXPECT_NEAR(o.gm, 1e3 * gm, 0.15 * o.gm) << o.type << " at " << o.vpk << " V, " << o.vgk << " V";
        if (!o.pentode) {
            // The triode's tables (their steps and grid range set by the type) follow its direct model.
            const double direct = plateCurrent(o.type, false, o.vgk, o.vpk, 0, true);
            EXPECT_NEAR(direct, ip, 2e-3 * direct) << o.type;
        }
    }
}

// Every type draws grid current by the power law Igc (Vgk + Vc)^N above its knee at -Vc
// and none below it.
TEST(CircuitTubeTypes, EveryTypeDrawsGridCurrentAboveItsKnee) {
    auto check = [](const std::string& type, bool pentode, const TubeTypes::Parameters& p) {
        const double vc = std::stod(p.at("Vc")), igc = std::stod(p.at("Igc")), n = std::stod(p.at("N"));
        EXPECT_EQ(0.0, gridCurrent(type, pentode, -vc - 0.2)) << type;
        const double expected = igc * std::pow(1.0 + vc, n);
        EXPECT_GT(expected, 1e-5) << type;
        EXPECT_NEAR(expected, gridCurrent(type, pentode, 1.0), 0.01 * expected) << type;
        EXPECT_GT(gridCurrent(type, pentode, 2.0), gridCurrent(type, pentode, 1.0)) << type;
    };
    for (const char* t : {"12AX7", "12AY7", "12AT7", "12AU7", "6SL7", "6SN7"}) check(t, false, TubeTypes::triodes().at(t)());
    for (const char* t : {"EF86", "EL84", "6V6", "GE6V6GT", "KT66"}) check(t, true, TubeTypes::pentodes().at(t)());
}

// Below VgkMin the model gives no plate current at all; at VgkMin the Koren current must have
// fallen so low that this is no step, which a low-mu type reaches only far below a 12AX7's -8 V.
TEST(CircuitTubeTypes, PlateCurrentHasFadedAtTheCutOff) {
    for (const char* t : {"12AX7", "12AT7", "12AU7", "6SL7", "6SN7"}) {
        const double vgkMin = std::stod(TubeTypes::triodes().at(t)().at("VgkMin"));
        EXPECT_LT(plateCurrent(t, false, vgkMin + 0.01, 300, 0, true), 1e-8) << t;
        EXPECT_EQ(0.0, plateCurrent(t, false, vgkMin - 0.01, 300, 0, true)) << t;
    }
}

TEST(CircuitTubeTypes, AnUnknownTypeIsNamed) {
    EXPECT_EQ("Invalid built-in pentode type: EF806",
              messageOf([] { evaluateRhs<Pentode>({{"Type", "EF806"}}, {250, 140, -2, 0}); }));
    // The two tables are separate: a triode's name is no pentode type, and the reverse.
    EXPECT_EQ("Invalid built-in pentode type: 12AT7",
              messageOf([] { evaluateRhs<Pentode>({{"Type", "12AT7"}}, {250, 140, -2, 0}); }));
    EXPECT_EQ("Invalid built-in triode type: EL84",
              messageOf([] { evaluateRhs<Triode>({{"Type", "EL84"}}, {250, -2, 0}); }));
    EXPECT_EQ("Invalid built-in triode type: 6sn7",
              messageOf([] { evaluateRhs<Triode>({{"Type", "6sn7"}}, {250, -2, 0}); }));
}
