// Designs of kelm::filterdesign against scipy's (tests/data/filter-design, make_reference.py).
#include <cmath>
#include <complex>
#include <sstream>

#include "dsp/IirDesignContext.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::filterdesign;
using namespace kelm::test;

namespace {

struct Reference {
    std::string family;
    int order;
    double fc;
    std::vector<double> a, b;
};

std::vector<Reference> loadReferences() {
    std::vector<Reference> refs;
    std::istringstream lines(readText(sourcePath("tests/data/filter-design/reference.txt")));
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        Reference ref;
        std::string bar;
        in >> ref.family >> ref.order >> ref.fc >> bar;
        double v;
        for (int i = 0; i < ref.order; ++i) in >> v, ref.a.push_back(v);
        in >> bar;
        for (int i = 0; i <= ref.order; ++i) in >> v, ref.b.push_back(v);
        if (in) refs.push_back(ref);
    }
    return refs;
}

// |H| in dB at f (fraction of the sample rate), a without its leading 1.
template <typename T>
double magnitudeDb(const std::vector<T>& a, const std::vector<T>& b, double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f);
    std::complex<double> num = 0, den = 1, zk = 1;
    for (size_t k = 0; k < b.size(); ++k, zk *= z1) num += static_cast<double>(b[k]) * zk;
    zk = z1;
    for (size_t k = 0; k < a.size(); ++k, zk *= z1) den += static_cast<double>(a[k]) * zk;
    return 20 * std::log10(std::abs(num / den));
}

} // namespace

TEST(DspFilterDesign, ButterworthAndBesselAgreeWithScipy) {
    auto refs = loadReferences();
    ASSERT_EQ(120u, refs.size());
    double worstCoefficient = 0, worstDb = 0;
    int compared = 0, skipped = 0;
    for (const Reference& ref : refs) {
        const bool bessel = ref.family == "Bessel";
        auto request = std::make_shared<IirDesignContext>(bessel ? BESSEL : BUTTERWORTH, ref.order, ref.fc);
        if (bessel) request->options.set(MATCHED_Z);
        designIir(request);
        const std::string what = ref.family + " " + std::to_string(ref.order) + " " + std::to_string(ref.fc);
        ASSERT_EQ(static_cast<size_t>(ref.order), request->A->size()) << what;
        ASSERT_EQ(static_cast<size_t>(ref.order + 1), request->B->size()) << what;
        // Within float rounding of each coefficient.
        for (int k = 0; k < ref.order; ++k) {
            const double tol = 4 * std::ldexp(1.0, -24) * std::max(1.0, std::fabs(ref.a[k]));
            EXPECT_NEAR(ref.a[k], (*request->A)[k], tol) << what << " a" << k + 1;
            worstCoefficient = std::max(worstCoefficient, std::fabs(ref.a[k] - (*request->A)[k]) / std::max(1.0, std::fabs(ref.a[k])));
        }
        for (int k = 0; k <= ref.order; ++k) {
            const double tol = 4 * std::ldexp(1.0, -24) * std::max(1e-3, std::fabs(ref.b[k])) + 1e-12;
            EXPECT_NEAR(ref.b[k], (*request->B)[k], tol) << what << " b" << k;
        }
        // Magnitude response in the band where the reference is above -60 dB. A direct-form
        // design of high order with a low corner cannot be held in float coefficients at
        // all: where scipy's own coefficients, rounded to float, already move the response
        // by more than 0.005 dB, the response says nothing about the design and is skipped.
        std::vector<float> af(ref.a.begin(), ref.a.end()), bf(ref.b.begin(), ref.b.end());
        bool representable = true;
        for (double f = 0.001; f < 0.5 && representable; f += 0.001) {
            const double reference = magnitudeDb(ref.a, ref.b, f);
            if (reference >= -60 && std::fabs(reference - magnitudeDb(af, bf, f)) > 0.005) representable = false;
        }
        if (!representable) {
            ++skipped;
            continue;
        }
        ++compared;
        for (double f = 0.001; f < 0.5; f += 0.001) {
            const double reference = magnitudeDb(ref.a, ref.b, f);
            if (reference < -60) continue;
            const double ours = magnitudeDb(*request->A, *request->B, f);
            EXPECT_NEAR(reference, ours, 0.01) << what << " f=" << f;
            worstDb = std::max(worstDb, std::fabs(reference - ours));
        }
    }
    std::printf("worst relative coefficient error %.3g; magnitude compared for %d designs (worst %.5f dB), "
                "%d not representable in float\n", worstCoefficient, compared, worstDb, skipped);
    EXPECT_GT(compared, 80);
}

TEST(DspFilterDesign, RequestAndCoreValidation) {
    auto design = [](int family, int order, double fc) {
        auto r = std::make_shared<IirDesignContext>(family, order, fc);
        designIir(r);
        return r;
    };
    auto r = design(BUTTERWORTH, 2, 0.25);
    double dc = ((*r->B)[0] + (*r->B)[1] + (*r->B)[2]) / (1 + (*r->A)[0] + (*r->A)[1]);
    EXPECT_NEAR(1.0, dc, 1e-6);
    EXPECT_NO_THROW(design(BUTTERWORTH, 10, 0.1));
    try {
        design(BUTTERWORTH, 11, 0.1);
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ("filter order out of range", e.what());
    }
    EXPECT_THROW(design(BUTTERWORTH, -1, 0.1), std::out_of_range);
    EXPECT_EQ("DesignContext: Invalid filter order: 0", messageOf([&] { design(BUTTERWORTH, 0, 0.1); }));
    EXPECT_EQ("IirDesignContext: fc1 must be (0, 0.5).", messageOf([&] { design(BUTTERWORTH, 2, 0.5); }));
    EXPECT_EQ("IirDesignContext: fc1 must be (0, 0.5).", messageOf([&] { design(BUTTERWORTH, 2, 0.0); }));
    EXPECT_EQ("IirDesignContext: ripple must be less than zero.", messageOf([&] { design(CHEBYSHEV, 2, 0.1); }));
    EXPECT_EQ("IirDesignContext: family must be one of the following: BESSEL, BUTTERWORTH, CHEBYSHEV.",
              messageOf([&] { design(7, 2, 0.1); }));
    // Bessel with the matched z-transform: no zeros, one numerator gain.
    auto b = std::make_shared<IirDesignContext>(BESSEL, 4, 0.1);
    b->options.set(MATCHED_Z);
    designIir(b);
    EXPECT_NE(0.0f, (*b->B)[0]);
    for (int k = 1; k <= 4; ++k) EXPECT_EQ(0.0f, (*b->B)[k]);
    // A high-pass request through the options reaches the core and keeps its length.
    auto h = std::make_shared<IirDesignContext>(BUTTERWORTH, 3, 0.2);
    h->options.reset(LOWPASS);
    h->options.set(HIGHPASS);
    designIir(h);
    EXPECT_EQ(3u, h->A->size());
}
