// The recursive filters: block paths against sample paths, Iir windows, reset,
// the lookup filter's grid and the wiper handler against its formulas.
#include <cstring>
#include <limits>
#include <cmath>
#include <random>

#include "dsp/BiQuad.h"
#include "dsp/FirstOrderIIR.h"
#include "dsp/Iir.h"
#include "dsp/LookupTableFilter.h"
#include "dsp/ThirdOrderIIR.h"
#include "dsp/DSPContext.h"
#include "plugin/core/VolCtrlPropertiesHandler.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
// Runs x through the filter in blocks whose sizes cycle through `sizes`.
template <typename T>
std::vector<float> blocks(T& f, const std::vector<float>& x, std::vector<size_t> sizes) {
    std::vector<float> y;
    size_t at = 0, k = 0;
    while (at < x.size()) {
        size_t n = std::min(sizes[k++ % sizes.size()], x.size() - at);
        BufferList in = {const_cast<float*>(x.data() + at)};
        f.process(in, n);
        y.insert(y.end(), f.getOutput(0), f.getOutput(0) + n);
        at += n;
    }
    return y;
}

// The difference equation in double, written out here.
std::vector<double> reference(const std::vector<float>& x, const std::vector<double>& a, const std::vector<double>& b) {
    std::vector<double> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        double s = 0;
        for (size_t k = 0; k < b.size(); ++k)
            if (n >= k) s += b[k] * x[n - k];
        for (size_t k = 1; k <= a.size(); ++k)
            if (n >= k) s -= a[k - 1] * y[n - k];
        y[n] = s;
    }
    return y;
}
} // namespace

TEST(DspRecursiveFilters, BlockPathsEqualSamplePathsForAnyBlockSplit) {
    auto x = noise(97, 1);
    const std::vector<double> a1 = {-0.9995}, b1 = {1, -1};
    const std::vector<double> a2 = {-1.2, 0.5}, b2 = {0.2, 0.3, 0.1};
    const std::vector<double> a3 = {-0.5, 0.2, -0.05}, b3 = {0.1, 0.2, 0.3, 0.4};
    auto check = [&](auto make1, const std::vector<double>& a, const std::vector<double>& b, bool samplePath = true) {
        auto ref = reference(x, a, b);
        for (auto sizes : std::vector<std::vector<size_t>>{{1}, {2}, {3}, {4}, {1, 3, 2, 4, 64}, {64}}) {
            auto f = make1();
            auto y = blocks(*f, x, sizes);
            for (size_t n = 0; n < x.size(); ++n) ASSERT_NEAR(ref[n], y[n], 1e-5) << n;
        }
        if (!samplePath) return;  // Iir has no sample path
        auto s = make1();
        for (size_t n = 0; n < x.size(); ++n) ASSERT_NEAR(ref[n], s->process(x[n]), 1e-5);
    };
    check([] { return makeFilter<FirstOrderIIR>({{"A", "-0.9995"}, {"B", "1.0|-1.0"}}); }, a1, b1);
    check([] { return makeFilter<BiQuad>({{"A", "-1.2|0.5"}, {"B", "0.2|0.3|0.1"}}); }, a2, b2);
    check([] { return makeFilter<ThirdOrderIIR>({{"A", "-0.5|0.2|-0.05"}, {"B", "0.1|0.2|0.3|0.4"}, {"InputIndex", "0"}}); }, a3, b3);
    check([] { return makeFilter<Iir>({{"Order", "3"}, {"A", "-0.5|0.2|-0.05"}, {"B", "0.1|0.2|0.3|0.4"}}); }, a3, b3, false);
    check([] { return makeFilter<Iir>({{"Order", "2"}, {"A", "-1.2|0.5"}, {"B", "0.2|0.3|0.1"}}); }, a2, b2, false);
}

TEST(DspRecursiveFilters, DcBlockerIterationAndReset) {
    auto f = makeFilter<FirstOrderIIR>({{"A", "-0.9995"}, {"B", "1.0|-1.0"}});
    std::vector<float> ones(10, 1.0f);
    BufferList in = {ones.data()};
    f->process(in, 10);
    EXPECT_FLOAT_EQ(1.0f, f->getOutput(0)[0]);  // starts at the constant and decays
    EXPECT_NEAR(std::pow(0.9995, 9), f->getOutput(0)[9], 1e-6);
    // reset gives the same output as a new filter.
    f->reset();
    f->process(in, 10);
    EXPECT_FLOAT_EQ(1.0f, f->getOutput(0)[0]);
    // Iteration: iterate + endIteration per frame reproduces the sample path.
    auto g = makeFilter<BiQuad>({{"A", "-1.2|0.5"}, {"B", "0.2|0.3|0.1"}});
    auto h = makeFilter<BiQuad>({{"A", "-1.2|0.5"}, {"B", "0.2|0.3|0.1"}});
    auto x = noise(20, 2);
    auto v = std::make_shared<ScalarVector>(1);
    for (int n = 0; n < 20; ++n) {
        (*v)[0] = x[n];
        g->iterate(v, n, 0);
        g->iterate(v, n, 1);  // a second pass over the same frame changes nothing
        g->endIteration(n);
        EXPECT_NEAR(h->process(x[n]), g->getOutput(0)[n], 1e-6);  // same terms, another order of sums
    }
    EXPECT_FLOAT_EQ(0.0f, makeFilter<Iir>({{"Order", "1"}, {"A", "0"}, {"B", "1|0"}})->process(3.0f));
}

TEST(DspRecursiveFilters, PropertyMessagesAndOrderChanges) {
    EXPECT_EQ("Invalid number of values for A (0.1). Expected 2. BiQuad name=f",
              messageOf([] { makeFilter<BiQuad>({{"A", "0.1"}, {"B", "1|0|0"}}); }));
    EXPECT_EQ("Invalid number of values for A (0.1|0.2|0.3). Expected 2. BiQuad name=f",
              messageOf([] { makeFilter<BiQuad>({{"A", "0.1|0.2|0.3"}, {"B", "1|0|0"}}); }));
    EXPECT_EQ("B is not defined. BiQuad name=f", messageOf([] { makeFilter<BiQuad>({{"A", "0|0"}}); }));
    EXPECT_EQ("InputIndex is not defined. BiQuad name=f",
              messageOf([] { makeFilter<ThirdOrderIIR>({{"A", "0|0|0"}, {"B", "1|0|0|0"}}); }));
    EXPECT_EQ("Iir: Order must be greater than 0. Iir name: f Order=0", messageOf([] { makeFilter<Iir>({{"Order", "0"}}); }));
    auto b = makeFilter<BiQuad>({{"A", "0.0|0.0"}, {"B", "1.0|0.0|0.0"}});
    EXPECT_FLOAT_EQ(0.7f, b->process(0.7f));  // passes the input unchanged
    EXPECT_EQ("BiQuad: Invalid number of A values 3",
              messageOf([&] { b->propertyChanged("A", std::make_shared<ScalarVector>(3, 0.0f)); }));
    EXPECT_EQ("BiQuad: Unknown property C", messageOf([&] { b->propertyChanged("C", std::make_shared<ScalarVector>()); }));
    float a2[2] = {0.5f, 0.25f};
    EXPECT_EQ("BiQuad: b cannot be null", messageOf([&] { b->setCoefficients(a2, nullptr); }));
    EXPECT_FLOAT_EQ(0.5f, b->coefficientA(0));  // a is kept although b failed

    auto iir = makeFilter<Iir>({{"Order", "2"}, {"A", "-1.2|0.5"}, {"B", "0.2|0.3|0.1"}});
    iir->propertyChanged("Order", 2.5f);  // rounds half away from zero
    EXPECT_EQ(3, iir->getOrder());
    std::vector<float> x(8, 1.0f);
    BufferList in = {x.data()};
    EXPECT_EQ("Iir: Invalid length of \"a\" coefficients. Expecting: 3. Got: 2", messageOf([&] { iir->process(in, 8); }));
    iir->setA({0, 0, 0});
    iir->setB({1, 0, 0, 0.5f});
    iir->process(in, 8);  // the new order starts from silence
    EXPECT_FLOAT_EQ(1.0f, iir->getOutput(0)[0]);
    EXPECT_FLOAT_EQ(1.5f, iir->getOutput(0)[3]);
    EXPECT_EQ("Iir: Invalid number of \"B\" coefficients. Expected: 4 got: 2", messageOf([&] { iir->setB({1, 2}); }));
}

TEST(DspLookupTableFilter, GridEdges) {
    auto f = makeFilter<LookupTableFilter>({{"VinMin", "-1"}, {"VinMax", "1"}, {"DeltaV", "0.5"}, {"Vout", "0|1|4|9|16"}});
    EXPECT_FLOAT_EQ(0, f->process(-1.0f));   // at VinMin
    EXPECT_FLOAT_EQ(0, f->process(-0.51f));  // just below VinMin + DeltaV: still entry 0
    EXPECT_NEAR(4, f->process(0.0f), 1e-6);  // VinMin + 2 DeltaV
    EXPECT_FLOAT_EQ(6.5f, f->process(0.25f));
    EXPECT_FLOAT_EQ(16, f->process(100.0f));
    EXPECT_FLOAT_EQ(0, f->process(-1e30f));
    EXPECT_FLOAT_EQ(16, f->process(std::numeric_limits<float>::infinity()));
    auto flat = makeFilter<LookupTableFilter>({{"VinMin", "0"}, {"VinMax", "1"}, {"DeltaV", "0.5"}, {"Vout", "2|2|2"}});
    EXPECT_EQ(2.0f, flat->process(0.77f));
    auto one = makeFilter<LookupTableFilter>({{"VinMin", "0"}, {"VinMax", "1"}, {"DeltaV", "0.5"}, {"Vout", "3"}});
    EXPECT_EQ(3.0f, one->process(0.3f));
    EXPECT_EQ("LookupTableFilter: size of Vout (2) is not equal to the size of values (5 )",
              messageOf([&] { f->propertyChanged("Vout", std::make_shared<ScalarVector>(2, 0.0f)); }));
    EXPECT_EQ("LookupTableFiter: empty Vout values array. ",
              messageOf([&] { f->propertyChanged("Vout", std::make_shared<ScalarVector>()); }));
    EXPECT_EQ("DeltaV is not defined. LookupTableAmp name=f", messageOf([] { makeFilter<LookupTableFilter>({{"VinMin", "0"}, {"VinMax", "1"}}); }));
    auto empty = makeFilter<LookupTableFilter>({});  // no properties: waits for its table
    std::vector<float> x(4, 0.0f);
    BufferList in = {x.data()};
    EXPECT_EQ("LookupTableFilter: f lookup data is not defined.", messageOf([&] { empty->process(in, 4); }));
}

// The block path works four samples at a time in vector lanes: it must give curve()'s
// samples to the bit, at the grid points, the flat ends, outside the grid and for NaN.
TEST(DspLookupTableFilter, BlockPathGivesTheSamplesOfTheCurve) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    std::vector<float> x = {nan, inf, -inf, 1e30f, -1e30f, -8.0f, -7.998f, -0.0f, 0.0f, 9.998f, 10.0f, 10.5f};
    for (int i = 0; i < 4001; ++i) x.push_back(-9.0f + 0.00503f * i);
    for (const char* shape : {"flat ends", "steps", "smooth", "constant", "rising from the first cell"}) {
        const int n = 9001;
        auto table = std::make_shared<ScalarVector>(n);
        for (int i = 0; i < n; ++i) {
            const float v = -8.0f + 0.002f * i;
            (*table)[i] = shape[0] == 'f'   ? std::min(std::max(v, -2.0f), 3.0f)
                          : shape[0] == 's' ? static_cast<float>(i / 7)
                          : shape[0] == 'c' ? 4.5f
                          : shape[0] == 'r' ? v * v * v
                                            : std::sin(v) * 100.0f;
        }
        auto f = makeFilter<LookupTableFilter>({{"VinMin", "-8"}, {"VinMax", "10"}, {"DeltaV", "0.002"}}, 8192);
        f->propertyChanged("Vout", table);
        const std::vector<float> y = blocks(*f, x, {7, 1, 64, 3});
        ASSERT_EQ(x.size(), y.size());
        for (size_t i = 0; i < x.size(); ++i) {
            const float want = f->valueAt(x[i]);
            ASSERT_EQ(0, std::memcmp(&want, &y[i], sizeof want)) << shape << ": x=" << x[i] << " gave " << y[i]
                                                                  << " against " << want;
        }
    }
}

TEST(DspVolumeHandler, UnknownPropertyIsRefused) {
    auto biquad = makeFilter<BiQuad>({{"A", "0|0"}, {"B", "0|0|0"}});
    VolCtrlPropertiesHandler handler(biquad.get());
    EXPECT_EQ("VolCtrlPropertiesHandler: Unknown property Gain", messageOf([&] { handler.propertyChanged("Gain", 1); }));
}

// The handler's own run over a block against the plain per-sample loop
// (updateForSample with the last output, then one step of the BiQuad), over
// blocks of any size: the same samples, and the same coefficients and history
// at the end, so that the iteration path can take over.
TEST(DspVolumeHandler, BlockRunEqualsThePerSampleLoop) {
    const int n = 9001;
    auto ygTable = std::make_shared<ScalarVector>(n), rpTable = std::make_shared<ScalarVector>(104);
    for (int i = 0; i < n; ++i) (*ygTable)[i] = static_cast<float>(i < 4000 ? 1e-10 : 1e-10 + (i - 4000) * 1.3e-9);
    for (int i = 0; i < 104; ++i) (*rpTable)[i] = static_cast<float>(30000 + 700 * i + 3 * (i % 5));
    auto setUp = [&](BiQuad& biquad) {
        auto handler = std::make_shared<VolCtrlPropertiesHandler>(&biquad);
        handler->yg().propertiesChanged(std::make_shared<PropertyMap>(PropertyMap{{"VinMin", "-8"}, {"VinMax", "10"}, {"DeltaV", "0.002"}}));
        handler->yg().propertyChanged("Vout", ygTable);
        handler->rp().propertiesChanged(std::make_shared<PropertyMap>(PropertyMap{{"VinMin", "52"}, {"VinMax", "155"}, {"DeltaV", "1"}}));
        handler->rp().propertyChanged("Vout", rpTable);
        biquad.setPropertiesHandler(handler);
        biquad.sampleRateChanged(192000);
        biquad.propertyChanged("Wiper", 0.7f);
        handler->propertiesChanged(std::make_shared<PropertyMap>(PropertyMap{{"Factor", "1.5"}}));
        return handler;
    };
    auto fast = makeFilter<BiQuad>({{"A", "0.0|0.0"}, {"B", "0.0|0.0|0.0"}}, 300);
    auto slow = makeFilter<BiQuad>({{"A", "0.0|0.0"}, {"B", "0.0|0.0|0.0"}}, 300);
    setUp(*fast);
    auto slowHandler = setUp(*slow);
    std::mt19937 rng(5);
    std::uniform_int_distribution<int> sizes(1, 300);
    std::vector<float> x(5000), y(300);
    for (size_t i = 0; i < x.size(); ++i) x[i] = 100 + 40 * std::sin(0.003f * i) + 5 * std::sin(0.05f * i);  // plate volts
    float last = 0;
    for (size_t at = 0; at < x.size();) {
        const size_t m = std::min<size_t>(sizes(rng), x.size() - at);
        BufferList in = {x.data() + at}, out = {y.data()};
        fast->process(in, out, m);
        for (size_t i = 0; i < m; ++i) {
            slowHandler->updateForSample(x[at + i], last);
            last = slow->process(x[at + i]);
            ASSERT_EQ(last, y[i]) << "sample " << at + i;
        }
        at += m;
    }
    EXPECT_NE(0.0f, last);
    for (int k = 0; k < 2; ++k) EXPECT_EQ(slow->coefficientA(k), fast->coefficientA(k));
    for (int k = 0; k < 3; ++k) EXPECT_EQ(slow->coefficientB(k), fast->coefficientB(k));
    // The iteration path continues from the same state.
    auto in = std::make_shared<ScalarVector>(1, 120.0f);
    EXPECT_EQ(slow->iterate(in, 0, 1)[0], fast->iterate(in, 0, 1)[0]);

    // Two handlers run side by side (the two channels, in the lanes of one loop) give what
    // each gives alone, with different inputs, wipers and factors (1 has a shortcut).
    for (const char* factor : {"1.0", "1.5"}) {
        std::vector<std::unique_ptr<BiQuad>> twins, alone;
        for (int k = 0; k < 4; ++k) {
            auto f = makeFilter<BiQuad>({{"A", "0.0|0.0"}, {"B", "0.0|0.0|0.0"}}, 300);
            setUp(*f);
            f->propertyChanged("Wiper", k % 2 ? 0.7f : 0.35f);
            f->getPropertiesHandler()->propertiesChanged(
                std::make_shared<PropertyMap>(PropertyMap{{"Factor", k % 2 ? "1.0" : factor}}));
            (k < 2 ? twins : alone).push_back(std::move(f));
        }
        std::vector<float> x2(x.size());
        for (size_t i = 0; i < x.size(); ++i) x2[i] = 90 + 50 * std::sin(0.0041f * i + 1);
        std::vector<float> yTwin(300), yAlone(300);
        for (size_t at = 0; at < x.size();) {
            const size_t m = std::min<size_t>(sizes(rng), x.size() - at);
            BufferList a = {x.data() + at}, b = {x2.data() + at};
            twins[0]->processTwin(*twins[1], a, b, m);
            for (int k = 0; k < 2; ++k) {
                BufferList input = {(k ? x2 : x).data() + at}, output = {yAlone.data()};
                alone[k]->process(input, output, m);
                ASSERT_EQ(0, std::memcmp(yAlone.data(), twins[k]->getOutput(0), m * sizeof(float)))
                    << "Factor " << factor << ", channel " << k << ", block at " << at;
            }
            at += m;
        }
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(alone[k]->coefficientA(1), twins[k]->coefficientA(1));
            EXPECT_EQ(alone[k]->coefficientB(0), twins[k]->coefficientB(0));
            EXPECT_EQ(alone[k]->iterate(in, 0, 1)[0], twins[k]->iterate(in, 0, 1)[0]);
        }
    }
}
