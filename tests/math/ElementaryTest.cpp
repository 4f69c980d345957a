// The inline elementary functions against the library's in long double: relative errors over
// their ranges (the table cells' edges, the neighbourhood of 1, the extremes) and the
// arguments they hand to the library.
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "math/Elementary.h"

using namespace kelm;

namespace {

// The largest relative error of f against ref over n arguments drawn from [lo, hi]
// (log-uniformly where both are positive and far apart), and where it occurred.
template <class F, class R>
double worstError(F f, R ref, double lo, double hi, double& at, int n = 30000) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(0, 1);
    const bool logarithmic = lo > 0 && hi / lo > 100;
    double worst = 0;
    for (int i = 0; i < n; ++i) {
        const double u = unit(random);
        const double x = logarithmic ? std::exp(std::log(lo) + u * (std::log(hi) - std::log(lo))) : lo + u * (hi - lo);
        const long double r = ref(static_cast<long double>(x));
        const double error = static_cast<double>(std::fabs((static_cast<long double>(f(x)) - r) / r));
        if (error > worst) {
            worst = error;
            at = x;
        }
    }
    return worst;
}

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double inf = std::numeric_limits<double>::infinity();
const double tiny = std::numeric_limits<double>::denorm_min();

} // namespace

TEST(MathElementary, WithinAFewUnitsInTheLastPlace) {
    const double ulp = std::numeric_limits<double>::epsilon();
    auto exp = [](double x) { return fastExp(x); };
    auto log = [](double x) { return fastLog(x); };
    auto atan = [](double x) { return fastAtan(x); };
    auto expRef = [](long double x) { return std::exp(x); };
    auto logRef = [](long double x) { return std::log(x); };
    auto atanRef = [](long double x) { return std::atan(x); };
    struct Range {
        double lo, hi;
    };
    double at = 0;
    // exp: the whole range it computes itself, the unit interval, and small arguments.
    for (Range r : {Range{-707.9, 707.9}, Range{-1, 1}, Range{1e-12, 1e-3}, Range{-1e-3, -1e-12}})
        EXPECT_LT(worstError(exp, expRef, r.lo, r.hi, at), 3 * ulp) << "exp near " << at;
    // log: normal numbers end to end, one octave, and both sides of 1 closely.
    for (Range r : {Range{1e-307, 1e307}, Range{0.5, 2}, Range{1 - 1e-4, 1}, Range{1, 1 + 1e-4}, Range{0.7, 1.5}})
        EXPECT_LT(worstError(log, logRef, r.lo, r.hi, at), 3 * ulp) << "log near " << at;
    // atan: either side of 1, where the argument is inverted, and signed.
    for (Range r : {Range{1e-12, 1e12}, Range{-3, 3}, Range{0.99, 1.01}})
        EXPECT_LT(worstError(atan, atanRef, r.lo, r.hi, at), 3 * ulp) << "atan near " << at;
    // Either side of the points where the table cell changes (an argument rounded to the
    // cell further away is the worst case of each polynomial).
    for (int j = 0; j < 64; ++j) {
        for (double side : {-1.0, 1.0}) {
            const double m = std::nextafter(1 + (2 * j + 1) / 128.0, 1 + side);
            for (double x : {m, m / 2, m * 1024})
                EXPECT_NEAR(std::log(static_cast<long double>(x)), fastLog(x), 3 * ulp * std::fabs(std::log(x))) << x;
            const double a = std::nextafter((2 * j + 1) / 128.0, side);
            for (double x : {a, 1 / a})
                EXPECT_NEAR(std::atan(static_cast<long double>(x)), fastAtan(x), 3 * ulp * std::atan(x)) << x;
            const double e = std::nextafter((j + 0.5) * std::log(2.0) / 64, side * 1000);
            for (double x : {e, e - 300, -e})
                EXPECT_NEAR(std::exp(static_cast<long double>(x)), fastExp(x), 3 * ulp * std::exp(x)) << x;
        }
    }
}

// The branchless forms that tables are computed with: over their whole domain, across the
// octave boundaries (where the logarithm's exponent changes at sqrt(2)) and near 1.
TEST(MathElementary, BranchlessFormsWithinTheirBound) {
    auto exp = [](double x) { return branchlessExp(x); };
    auto log = [](double x) { return branchlessLog(x); };
    auto expRef = [](long double x) { return std::exp(x); };
    auto logRef = [](long double x) { return std::log(x); };
    double at = 0;
    EXPECT_LT(worstError(exp, expRef, -700, 700, at), 1e-13) << "exp near " << at;
    EXPECT_LT(worstError(exp, expRef, -1e-3, 1e-3, at), 1e-13) << "exp near " << at;
    EXPECT_LT(worstError(log, logRef, 1e-307, 1e307, at), 1e-13) << "log near " << at;
    EXPECT_LT(worstError(log, logRef, 0.7, 1.5, at), 1e-13) << "log near " << at;
    EXPECT_LT(worstError(log, logRef, 1 + 1e-9, 1 + 1e-3, at), 1e-13) << "log near " << at;
    EXPECT_EQ(branchlessExp(0), 1.0);
    EXPECT_EQ(branchlessLog(1), 0.0);
    EXPECT_NEAR(branchlessLog(std::sqrt(2.0)), 0.5 * std::log(2.0), 1e-14);
}

TEST(MathElementary, ExactPointsAndTheLibrarysArguments) {
    // Where the result is exact, it is.
    EXPECT_EQ(1.0, fastExp(0.0));
    EXPECT_EQ(0.0, fastLog(1.0));
    EXPECT_EQ(0.0, fastAtan(0.0));
    EXPECT_TRUE(std::signbit(fastAtan(-0.0)));
    EXPECT_EQ(-fastAtan(0.3), fastAtan(-0.3));
    EXPECT_EQ(-fastAtan(30.0), fastAtan(-30.0));
    EXPECT_DOUBLE_EQ(std::atan(1.0), fastAtan(1.0));
    for (int k = -1022; k <= 1023; k += 7) EXPECT_DOUBLE_EQ(k * std::log(2.0), fastLog(std::ldexp(1.0, k))) << k;
    // Overflow, underflow, infinities, NaNs, zero, negative and subnormal numbers.
    EXPECT_EQ(inf, fastExp(710.0));
    EXPECT_EQ(0.0, fastExp(-746.0));
    EXPECT_EQ(std::exp(709.5), fastExp(709.5));
    EXPECT_EQ(std::exp(-740.0), fastExp(-740.0));
    EXPECT_EQ(inf, fastExp(inf));
    EXPECT_EQ(0.0, fastExp(-inf));
    EXPECT_TRUE(std::isnan(fastExp(notANumber)));
    EXPECT_NEAR(std::exp(707.9), fastExp(707.9), 3e-16 * std::exp(707.9));
    EXPECT_NEAR(std::exp(-707.9), fastExp(-707.9), 3e-16 * std::exp(-707.9));
    EXPECT_EQ(-inf, fastLog(0.0));
    EXPECT_TRUE(std::isnan(fastLog(-1.0)));
    EXPECT_TRUE(std::isnan(fastLog(notANumber)));
    EXPECT_EQ(inf, fastLog(inf));
    EXPECT_EQ(std::log(tiny), fastLog(tiny));
    EXPECT_DOUBLE_EQ(std::log(std::numeric_limits<double>::max()), fastLog(std::numeric_limits<double>::max()));
    EXPECT_EQ(std::atan(inf), fastAtan(inf));
    EXPECT_EQ(-std::atan(inf), fastAtan(-inf));
    EXPECT_TRUE(std::isnan(fastAtan(notANumber)));
    EXPECT_EQ(std::atan(1e300), fastAtan(1e300));
}
