// The tube models: Koren tables against the direct model, limits, built-in
// types, the limiter, and a pentode stage with its NaN guard.
#include <cmath>
#include <limits>

#include "circuit/Circuit.h"
#include "circuit/MNAContext.h"
#include "circuit/devices/KorenPentode.h"
#include "circuit/devices/NKPentodeAnodeCurrent.h"
#include "circuit/devices/NKPentodeScreenCurrent.h"
#include "circuit/devices/NKTriodeAnodeCurrent.h"
#include "circuit/devices/Pentode.h"
#include "circuit/devices/PowerLawGridCurrent.h"
#include "circuit/devices/Triode.h"
#include "circuit/devices/TubeTypes.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
PropertyMap typeSet(const std::string& type) {
    PropertyMap p;
    for (auto& e : TubeTypes::triodes().at(type)()) p.insert(e);
    return p;
}

// A Koren plate current computed here in double, from the formula alone.
double koren(double vgk, double vpk) {
    const double Kp = 600, Kvb = 300, mu = 100, Ex = 1.4, Kg = 1060;
    double e = std::exp(Kp * (1 / mu + vgk / std::sqrt(vpk * vpk + Kvb)));
    return 2 * std::pow(vpk / Kp * std::log(1 + e), Ex) / Kg;
}

std::shared_ptr<MNAContext> contextWith(Component* c, std::initializer_list<const char*> nodes,
                                        const PropertyMap& props) {
    std::unique_ptr<Component> owned(c);
    auto ctx = std::make_shared<MNAContext>();
    auto names = std::make_shared<std::vector<std::string>>();
    for (auto n : nodes) names->push_back(n);
    c->init("tube", std::make_shared<PropertyMap>(props), names, ctx);
    ctx->addElement(owned.release());
    ctx->init();
    return ctx;
}
} // namespace

TEST(SolversTubeModels, KorenTablesFollowTheFormula) {
    NKTriodeAnodeCurrent table, direct;
    PropertyMap p = typeSet("12AX7");
    table.init(p);
    p["DoNotInterpolate"] = "true";
    direct.init(p);
    EXPECT_EQ(1201, table.rowCount());
    EXPECT_EQ(201, table.columnCount());
    for (double vgk : {-3.0, -1.234, -0.5, 0.0, 0.7}) {
        for (double vpk : {50.0, 101.3, 180.0, 299.9}) {
            double ref = koren(vgk, vpk);
            EXPECT_NEAR(ref, direct.current(vgk, vpk), 1e-6 * ref + 1e-12);
            EXPECT_NEAR(ref, table.current(vgk, vpk), 1e-2 * ref + 1e-7) << vgk << " " << vpk;
        }
    }
    // Below VgkMin, and at or below 0 V on the plate: nothing flows.
    EXPECT_EQ(0.0f, table.current(-8.5f, 100));
    EXPECT_EQ(0.0f, table.dIdVgk(-8.5f, 100));
    EXPECT_EQ(0.0f, table.current(-1, 0));
    // Above VgkMax the current goes on along its slope there (which the derivatives hold),
    // so that Newton's method finds no flat ground to wander on.
    for (NKTriodeAnodeCurrent* model : {&table, &direct}) {
        const double slope = model->dIdVgk(4.0f, 100);
        EXPECT_GT(slope, 0);
        EXPECT_NEAR(model->current(4.0f, 100) + slope, model->current(5.0f, 100), 1e-6);
        EXPECT_EQ(slope, model->dIdVgk(5.0f, 100));
    }
    // Above VpMax the current keeps rising along the last cell; its derivatives are clamped.
    EXPECT_GT(table.current(-1, 450), table.current(-1, 400));
    EXPECT_EQ(table.dIdVpk(-1, 400), table.dIdVpk(-1, 450));
}

// At the grid's own points the three tables hold the direct forms (to the rounding of float
// weights), with and without a contact potential (Vct, which the plate-voltage slope leaves
// out).
TEST(SolversTubeModels, TablesHoldTheDirectFormsAtTheirPoints) {
    for (const char* vct : {"0", "0.5"}) {
        PropertyMap p = typeSet("12AX7");
        p["Vct"] = vct;
        NKTriodeAnodeCurrent table, direct;
        table.init(p);
        p["DoNotInterpolate"] = "true";
        direct.init(p);
        double worst[3] = {0, 0, 0};
        for (int i = 0; i <= 1200; i += 7) {
            const float vgk = i * 0.01f - 8.0f;
            for (int j = 1; j <= 200; j += 3) {
                const float vpk = j * 2.0f;
                const double pairs[3][2] = {{table.current(vgk, vpk), direct.current(vgk, vpk)},
                                            {table.dIdVgk(vgk, vpk), direct.dIdVgk(vgk, vpk)},
                                            {table.dIdVpk(vgk, vpk), direct.dIdVpk(vgk, vpk)}};
                for (int k = 0; k < 3; ++k) {
                    // The table drops currents below 1 nA.
                    if (k == 0 && pairs[k][1] < 1e-9) continue;
                    const double error = std::fabs(pairs[k][0] - pairs[k][1]) / (std::fabs(pairs[k][1]) + 1e-15);
                    worst[k] = std::max(worst[k], error);
                }
            }
        }
        for (int k = 0; k < 3; ++k) EXPECT_LT(worst[k], 1e-4) << "table " << k << " with Vct " << vct;
    }
}

TEST(SolversTubeModels, BuiltInTypesAndTheMergeRule) {
    EXPECT_EQ("1.113", TubeTypes::triodes().at("12AY7")().at("Ex"));
    EXPECT_EQ(0u, TubeTypes::triodes().at("12AY7")().count("DeltaVpk"));
    EXPECT_EQ("4500", TubeTypes::pentodes().at("GE6V6GT")().at("Kg2"));
    EXPECT_EQ("Invalid built-in triode type: 12ax7",
              messageOf([&] { contextWith(new Triode(), {"P", "G", "K"}, {{"Type", "12ax7"}}); }));
    EXPECT_EQ("Invalid built-in triode type: KT66",
              messageOf([&] { contextWith(new Triode(), {"P", "G", "K"}, {{"Type", "KT66"}}); }));
    EXPECT_EQ("PowerLawGridCurrent: Vc is not defined.",
              messageOf([&] { contextWith(new Triode(), {"P", "G", "K"}, {}); }));
    // The element's own Ex wins over the built-in one.
    auto* own = new Triode();
    auto keepOwn = contextWith(own, {"P", "G", "K"}, {{"Type", "12AX7"}, {"Ex", "1.2"}, {"DoNotInterpolate", "true"}});
    auto* builtIn = new Triode();
    auto keepBuiltIn = contextWith(builtIn, {"P", "G", "K"}, {{"Type", "12AX7"}, {"DoNotInterpolate", "true"}});
    EXPECT_NE(own->anodeCurrent().current(-1, 200), builtIn->anodeCurrent().current(-1, 200));
    EXPECT_EQ("Triode: Kp must be greater than or equal to 0. Kp=-1",
              messageOf([&] { contextWith(new Triode(), {"P", "G", "K"}, {{"Type", "12AX7"}, {"Kp", "-1"}}); }));
}

TEST(SolversTubeModels, PlateLimiterWritesBackIntoX) {
    auto* t = new Triode();
    auto ctx = contextWith(t, {"P", "G", "K"}, {{"Type", "12AX7"}});
    float x[3] = {100, -1, 1};  // P, G, K
    t->getRhs(x);  // first call: no limiting, the stored plate voltage is 0
    EXPECT_FLOAT_EQ(100, x[0]);
    x[0] = 500;
    t->getRhs(x);
    EXPECT_FLOAT_EQ(200, x[0]);  // at most twice the stored voltage
    x[0] = 10;
    t->getRhs(x);
    EXPECT_FLOAT_EQ(100, x[0]);  // at least half of it (200 stored)
    x[2] = -3;
    t->getJacobian(x);
    EXPECT_FLOAT_EQ(0, x[2]);  // a negative cathode is lifted to 0
}

// One evaluation per Newton iteration: the same rhs, stamp and limited x as getRhs then
// getJacobian, along a path that engages the limiter.
TEST(SolversTubeModels, TriodeEvaluatesRhsAndStampInOnePass) {
    auto* fused = new Triode();
    auto* split = new Triode();
    auto fusedContext = contextWith(fused, {"P", "G", "K"}, {{"Type", "12AX7"}});
    auto splitContext = contextWith(split, {"P", "G", "K"}, {{"Type", "12AX7"}});
    const float path[][3] = {{150, -1.5f, 1.2f}, {90, 0.5f, 1.0f}, {400, -3, 1.5f}, {20, 2, -1}, {-5, 1, 0.5f}, {60, -0.2f, 0.8f}};
    for (const auto& point : path) {
        float a[3] = {point[0], point[1], point[2]}, b[3] = {point[0], point[1], point[2]};
        scalar** stamp = nullptr;
        const float* r = fused->evaluate(a, stamp);
        const float* rs = split->getRhs(b);
        const float rhs[3] = {rs[0], rs[1], rs[2]};
        scalar** splitStamp = split->getJacobian(b);
        ASSERT_NE(nullptr, stamp);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(rhs[i], r[i]) << point[0];
            EXPECT_EQ(b[i], a[i]) << point[0];
            for (int j = 0; j < 3; ++j) EXPECT_EQ(splitStamp[i][j], stamp[i][j]) << point[0];
        }
    }
}

TEST(SolversTubeModels, PentodeStageRunsAndANanIsCaught) {
    auto d = makeDriver(readText(sourcePath("examples/pentode-stage.xml")), 96000, 480);
    std::vector<float> in(480);
    float lo = 1e9f, hi = -1e9f;
    for (int block = 0; block < 40; ++block) {
        for (int i = 0; i < 480; ++i) in[i] = 10.0f * std::sin(2 * M_PI * 1000 * (block * 480 + i) / 96000.0);
        d->process({in.data()}, 480);
        for (int i = 0; i < 480; ++i) {
            float v = d->getResults()[0][i];
            ASSERT_TRUE(std::isfinite(v));
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
    }
    EXPECT_GT(lo, 0.0f);
    EXPECT_LT(hi, 700.0f);
    EXPECT_GT(hi - lo, 20.0f);  // the stage amplifies
    // A NaN in: the kernel reads it as 0 V and the stage plays on; under the general
    // iteration the pentode refuses it.
    in.assign(480, std::numeric_limits<float>::quiet_NaN());
    d->process({in.data()}, 480);
    for (int i = 0; i < 480; ++i) ASSERT_TRUE(std::isfinite(d->getResults()[0][i])) << i;
    dynamic_cast<Circuit&>(d->getGraph("PowerStage")).setKernelsAllowed(false);
    std::string message = messageOf([&] { d->process({in.data()}, 480); });
    EXPECT_EQ(0u, message.find("Pentode: ")) << message;
    EXPECT_NE(std::string::npos, message.find("is not a valid number")) << message;
}

TEST(SolversTubeModels, PentodeCurrentsAtTheEdges) {
    auto* p = new Pentode();
    auto ctx = contextWith(p, {"P", "S", "G", "K"}, {{"Type", "KT66"}});
    float x[4] = {300, 0, -20, 0};  // screen at 0 V: E1 is 0, no plate current
    float* rhs = p->getRhs(x);
    EXPECT_EQ(0.0f, rhs[0]);
    float y[4] = {-5, 250, -10, 0};  // a negative plate is lifted to 0, then held within half of the stored 300 V
    p->getRhs(y);
    EXPECT_EQ(150.0f, y[0]);
    auto* fresh = new Pentode();
    auto keep = contextWith(fresh, {"P", "S", "G", "K"}, {{"Type", "KT66"}});
    float w[4] = {-5, 250, -10, 2};  // with nothing stored: the plate rises to the cathode's 2 V
    fresh->getRhs(w);
    EXPECT_EQ(2.0f, w[0]);
    float z[4] = {std::nanf(""), 250, -10, 0};
    std::string message = messageOf([&] { p->getRhs(z); });
    EXPECT_EQ(0u, message.find("Pentode: rhs[p] is not a valid number: ")) << message;
}

TEST(SolversTubeModels, PentodeScreenAtOrBelowTheCathodeGivesNoPlateCurrent) {
    // Cathode swept above and below the screen, grid from cut-off to positive, on a fresh tube
    // each time so that the plate limiter holds nothing. No number may be NaN or infinite, the
    // plate current vanishes once the screen is at or below the cathode, and it is there above.
    int conducting = 0;
    for (float vk : {0.0f, 1.0f, 5.0f, 40.0f}) {
        for (float vs : {0.0f, 0.5f, 3.0f, 250.0f}) {
            for (float vg : {-60.0f, -2.0f, 0.0f, 2.0f}) {
                auto* p = new Pentode();
                auto ctx = contextWith(p, {"P", "S", "G", "K"}, {{"Type", "KT66"}});
                float x[4] = {300, vs, vg, vk};
                float* rhs = nullptr;
                ASSERT_NO_THROW(rhs = p->getRhs(x)) << vs << " " << vg << " " << vk;
                const float plate = -rhs[0];
                float** j = nullptr;
                ASSERT_NO_THROW(j = p->getJacobian(x)) << vs << " " << vg << " " << vk;
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 4; ++c) ASSERT_TRUE(std::isfinite(j[r][c])) << r << c;
                if (vs <= vk) {
                    EXPECT_EQ(0.0f, plate) << vs << " " << vg << " " << vk;
                    EXPECT_EQ(0.0f, j[0][0]);  // nor any slope along the plate
                } else if (vg - vk > -2.0f && vs - vk > 100.0f) {
                    EXPECT_GT(plate, 1e-3f) << vs << " " << vg << " " << vk;
                    ++conducting;
                }
            }
        }
    }
    EXPECT_GE(conducting, 3);
    // Towards the boundary from above the current falls to nothing: no step at the screen voltage.
    auto* p = new Pentode();
    auto ctx = contextWith(p, {"P", "S", "G", "K"}, {{"Type", "KT66"}});
    float x[4] = {300, 1e-3f, 0, 0};
    EXPECT_LT(-p->getRhs(x)[0], 1e-6f);
}

// The pentode's W(z) = log log(1 + e^z) from its table and asymptotes against the direct
// form, through the table's grids, their joint and both ends: W within 1e-9 (a relative error
// of E1), W' within 2e-7 of its size (the slope of the cubic pieces themselves, so that
// Newton's iteration on them converges as on the law).
TEST(SolversTubeModels, PentodeSoftplusTableHoldsTheDirectForm) {
    double worst = 0, worstSlope = 0;
    for (double z = -60; z <= 600; z += 0.0037) {
        double slope, exact, exactSlope;
        const double w = KorenPentode::softplusLog(z, slope);
        KorenPentode::softplusLogExact(z, exact, exactSlope);
        worst = std::max(worst, std::fabs(w - exact));
        worstSlope = std::max(worstSlope, std::fabs(slope - exactSlope) / exactSlope);
    }
    EXPECT_LT(worst, 1e-9);
    EXPECT_LT(worstSlope, 2e-7);
}

// The port evaluation computes plate and screen currents with all their slopes in one pass
// in double; the general iteration's stamps come from the separate current models (in
// float). Both agree to the float's rounding for every built-in pentode, from cut-off to a
// positive grid, with the plate or the screen at the cathode (where a tiny screen voltage
// under a positive grid overflows the separate law's exponential, the one pass stays finite),
// and each number lands in its place of the ports' Jacobian (grid, plate, screen).
TEST(SolversTubeModels, PentodePortsAgreeWithTheSeparateCurrents) {
    auto near = [](double expected, double actual) {
        if (!std::isfinite(expected)) return std::isfinite(actual);
        return std::fabs(actual - expected) <= 2e-7 * std::fabs(expected) + 1e-30;
    };
    int conducting = 0;
    for (const auto& type : TubeTypes::pentodes()) {
        PropertyMap props;
        for (auto& e : type.second()) props.insert(e);
        NKPentodeAnodeCurrent anode;
        NKPentodeScreenCurrent screen;
        anode.init(props);
        screen.init(props);
        const KorenPentode law = anode.onePass();
        for (float vg : {-60.0f, -8.0f, -2.5f, -0.75f, 0.0f, 1.5f}) {
            for (float vp : {0.0f, 0.5f, 40.0f, 150.0f, 310.0f}) {
                for (float vs : {0.0f, 0.25f, 20.0f, 100.0f, 250.0f}) {
                    KorenPentode::Currents c;
                    law.evaluate(vg, vp, vs, c);
                    const ScalarVector a = *anode.derivatives(vg, vp, vs);
                    const ScalarVector s = *screen.derivatives(vg, vp, vs);
                    const double expected[] = {anode.current(vg, vp, vs), a[1], screen.current(vg, vp, vs), s[0], s[2]};
                    const double actual[] = {c.ip, c.ipVpk, c.is, c.isVgk, c.isVsk};
                    for (int k = 0; k < 5; ++k)
                        EXPECT_PRED2(near, expected[k], actual[k])
                            << type.first << " vg=" << vg << " vp=" << vp << " vs=" << vs << " number " << k;
                    // The plate current's slopes by grid and screen are its own derivatives
                    // (central differences; the separate model's are not).
                    if (vs > 1 && vp > 1) {
                        const double h = 1e-4;
                        KorenPentode::Currents up, down;
                        law.evaluate(vg + h, vp, vs, up);
                        law.evaluate(vg - h, vp, vs, down);
                        EXPECT_NEAR((up.ip - down.ip) / (2 * h), c.ipVgk, 1e-6 * std::fabs(c.ipVgk) + 1e-12)
                            << type.first << " vg=" << vg << " vp=" << vp << " vs=" << vs;
                        law.evaluate(vg, vp, vs + h, up);
                        law.evaluate(vg, vp, vs - h, down);
                        EXPECT_NEAR((up.ip - down.ip) / (2 * h), c.ipVsk, 1e-6 * std::fabs(c.ipVsk) + 1e-12)
                            << type.first << " vg=" << vg << " vp=" << vp << " vs=" << vs;
                    }
                    conducting += c.ip > 1e-4;
                }
            }
        }
    }
    EXPECT_GT(conducting, 50);
    // Through the device: the ports against the general stamp at one point of a fresh tube (the
    // plate row by grid and screen aside: those slopes differ, as above).
    auto* p = new Pentode();
    auto ctx = contextWith(p, {"P", "S", "G", "K"}, {{"Type", "EF86"}});
    auto* q = new Pentode();
    auto keep = contextWith(q, {"P", "S", "G", "K"}, {{"Type", "EF86"}});
    double v[3] = {-1.5 + 0.3, 180 - 1.5, 120 - 1.5}, i[3], di[9];
    p->evaluatePorts(v, i, di, nullptr, nullptr);
    float x[4] = {180, 120, 0.3f, 1.5f};  // P, S, G, K
    const float* rhs = q->getRhs(x);
    const double currents[] = {-rhs[2], -rhs[0], -rhs[1]};
    for (int k = 0; k < 3; ++k) EXPECT_PRED2(near, currents[k], i[k]) << k;
    float** j = q->getJacobian(x);
    // Port order grid, plate, screen; the stamp's rows and columns are P, S, G, K.
    const int row[] = {2, 0, 1};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (r != 1 || c == 1) {
                EXPECT_PRED2(near, j[row[r]][row[c]], di[r * 3 + c]) << r << c;
            }
}
