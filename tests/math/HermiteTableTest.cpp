// The interpolation table: its error against the functions it holds, its slope against its
// own values, and lookups outside it or of bad arguments.
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "math/HermiteTable.h"

using namespace kelm;

namespace {

constexpr double kNvt = 0.03;

// A junction's exponential and a depletion-like power law, with their slopes.
void functions(double v, double* value, double* slope) {
    value[0] = std::exp(v / kNvt);
    slope[0] = value[0] / kNvt;
    value[1] = std::pow(2 - v, 0.67);
    slope[1] = -0.67 * std::pow(2 - v, -0.33);
}

} // namespace

TEST(HermiteTable, InterpolatesWithinItsBoundAndItsSlopeIsItsOwnDerivative) {
    HermiteTable<2> table;
    table.reserve(64, 512);
    // Fine steps of nvt / 8 from -0.3 to 1.2 V, coarse ones of 0.1 V below.
    const int fine = static_cast<int>(std::ceil(1.5 / (kNvt / 8)));
    table.build(-6, -0.3, 1.2, 57, fine, functions);
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> span(-6, 1.2);
    double worstFine = 0, worstCoarse = 0, worstSelf = 0;
    for (int n = 0; n < 20000; ++n) {
        const double v = span(random);
        double value[2], slope[2], exact[2], exactSlope[2];
        ASSERT_TRUE(table.lookup(v, value, slope)) << v;
        functions(v, exact, exactSlope);
        if (v >= -0.3) {
            for (int k = 0; k < 2; ++k) worstFine = std::max(worstFine, std::fabs(value[k] / exact[k] - 1));
        } else {
            // Below the split the exponential has died away against the junction's -1 beside
            // it (the error measured against that); the power law keeps its relative error.
            worstCoarse = std::max(worstCoarse, std::fabs(value[1] / exact[1] - 1));
            worstCoarse = std::max(worstCoarse, std::fabs(value[0] - exact[0]));
        }
        // The slope is the interpolant's: a central difference of the values agrees with it.
        const double h = 1e-7;
        double up[2], down[2], unused[2];
        if (table.lookup(v + h, up, unused) && table.lookup(v - h, down, unused)) {
            const double difference = (up[0] - down[0]) / (2 * h);
            worstSelf = std::max(worstSelf, std::fabs(difference - slope[0]) / std::fabs(slope[0]));
        }
    }
    // Hermite's bound for the exponential: (h / nvt)^4 / 384 = 6.4e-7 at h = nvt / 8.
    EXPECT_LT(worstFine, 7e-7);
    EXPECT_LT(worstCoarse, 1e-5);
    EXPECT_LT(worstSelf, 1e-5);
}

TEST(HermiteTable, LookupsOutsideOrOfBadArgumentsFailWithoutWriting) {
    HermiteTable<2> table;
    double value[2] = {7, 7}, slope[2] = {7, 7};
    // Not yet built: nothing is inside.
    EXPECT_FALSE(table.lookup(0, value, slope));
    table.reserve(8, 16);
    table.build(-1, 0, 1, 8, 16, functions);
    for (double v : {-1.0001, 1.0, 5.0, -1e300, std::numeric_limits<double>::quiet_NaN(),
                     std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(table.lookup(v, value, slope)) << v;
    EXPECT_EQ(7, value[0]);
    EXPECT_EQ(7, slope[1]);
    // More intervals than reserved, or an empty span: the table stays empty, never overruns.
    table.build(-1, 0, 1, 8, 17, functions);
    EXPECT_FALSE(table.lookup(0.5, value, slope));
    table.build(-1, 0, 0, 8, 16, functions);
    EXPECT_FALSE(table.lookup(-0.5, value, slope));
    // No coarse part where the low end is not below the split.
    table.build(0.5, 0, 1, 8, 16, functions);
    EXPECT_FALSE(table.lookup(-0.5, value, slope));
    EXPECT_TRUE(table.lookup(0.5, value, slope));
}
