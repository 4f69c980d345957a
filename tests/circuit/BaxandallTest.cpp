// The tone stack against ngspice: under the trapezoidal rule our circuit is the
// bilinear transform of the analogue one, so our response at f equals ngspice's
// AC response at the prewarped frequency (fs/pi) tan(pi f / fs).
#include <cmath>
#include <complex>
#include <fstream>

#include <Eigen/LU>

#include "circuit/Circuit.h"
#include "solvers/NodalKernel.h"
#include "tests/TestUtil.h"
#include "tests/circuit/BaxandallReference.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const double kPi = 3.14159265358979323846;

std::vector<double> impulseResponse(double bass, double treble, size_t length, float rate) {
    auto d = makeDriver(readText(sourcePath("examples/baxandall.xml")), rate, 512);
    d->findControl("Bass")->setValue(static_cast<float>(bass));
    d->findControl("Treble")->setValue(static_cast<float>(treble));
    std::vector<double> h;
    std::vector<float> block(512, 0.0f);
    block[0] = 1.0f;
    while (h.size() < length) {
        d->process({block.data()}, 512);
        h.insert(h.end(), d->getResults()[0], d->getResults()[0] + 512);
        block[0] = 0.0f;
    }
    return h;
}

} // namespace

TEST(CircuitBaxandall, ResponseMatchesNgspiceAtPrewarpedFrequencies) {
    const double fs = 48000;
    const double positions[][2] = {{0.5, 0.5}, {0.0, 1.0}, {1.0, 0.0}, {0.2, 0.8}, {0.9, 0.3}, {0.05, 0.05}};
    for (auto& pos : positions) {
        auto spice = ngspiceResponse(pos[0], pos[1]);
        ASSERT_GT(spice.size(), 200u);
        auto h = impulseResponse(pos[0], pos[1], 16384, static_cast<float>(fs));
        int compared = 0;
        double worstDb = 0, worstDeg = 0;
        for (const Point& p : spice) {
            // The digital frequency whose prewarped image is this analogue frequency.
            double f = fs / kPi * std::atan(kPi * p.f / fs);
            if (f < 20 || f > 20000) continue;
            std::complex<double> H = 0;
            const double w = 2 * kPi * f / fs;
            for (size_t n = 0; n < h.size(); ++n) H += h[n] * std::polar(1.0, -w * n);
            double dB = 20 * std::log10(std::abs(H) / std::abs(p.h));
            double deg = std::remainder(std::arg(H) - std::arg(p.h), 2 * kPi) * 180 / kPi;
            worstDb = std::max(worstDb, std::fabs(dB));
            worstDeg = std::max(worstDeg, std::fabs(deg));
            ++compared;
        }
        std::printf("bass %.2f treble %.2f: %d points, worst %.5f dB, %.5f degrees\n", pos[0], pos[1], compared,
                    worstDb, worstDeg);
        EXPECT_GT(compared, 150) << "bass " << pos[0] << " treble " << pos[1];
        EXPECT_LT(worstDb, 0.01) << "bass " << pos[0] << " treble " << pos[1];
        EXPECT_LT(worstDeg, 0.1) << "bass " << pos[0] << " treble " << pos[1];
    }
}

TEST(CircuitBaxandall, KnobsMoveTheResponseAndRefactorOnceOnTheNextSample) {
    auto d = makeDriver(readText(sourcePath("examples/baxandall.xml")), 48000, 64);
    auto* circuit = dynamic_cast<Circuit*>(&d->getGraph("Baxandall"));
    ASSERT_NE(nullptr, circuit);
    auto* kernel = dynamic_cast<const NodalKernel*>(&circuit->kernel());
    ASSERT_NE(nullptr, kernel);
    EXPECT_STREQ("state-space", kernel->name());
    std::vector<float> x(64);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(0.01f * i);
    d->process({x.data()}, 64);  // first block delivers the initial control values
    long before = kernel->refreshCount();
    for (int i = 0; i < 10; ++i) d->process({x.data()}, 64);
    EXPECT_EQ(before, kernel->refreshCount());  // a resting circuit never eliminates A again
    d->findControl("Bass")->setValue(0.9f);
    d->findControl("Bass")->setValue(0.8f);
    d->findControl("Treble")->setValue(0.1f);
    d->process({x.data()}, 1);
    EXPECT_EQ(before + 1, kernel->refreshCount());  // several changes, one elimination, before that sample
    d->process({x.data()}, 64);
    EXPECT_EQ(before + 1, kernel->refreshCount());

    // Bass up raises the low end relative to the middle setting.
    auto flat = impulseResponse(0.5, 0.5, 8192, 48000);
    auto boosted = impulseResponse(0.0, 0.5, 8192, 48000);
    auto gainAt = [](const std::vector<double>& h, double f) {
        std::complex<double> H = 0;
        for (size_t n = 0; n < h.size(); ++n) H += h[n] * std::polar(1.0, -2 * kPi * f / 48000 * n);
        return 20 * std::log10(std::abs(H));
    };
    EXPECT_GT(std::fabs(gainAt(boosted, 50) - gainAt(flat, 50)), 6.0);
    EXPECT_LT(std::fabs(gainAt(boosted, 10000) - gainAt(flat, 10000)), 1.0);
}

namespace {

// The analogue tone stack solved in double: nodal equations with the ideal
// op-amp's output current as an extra unknown and its inputs held equal.
std::complex<double> analogueGain(double bass, double treble, double f) {
    typedef std::complex<double> C;
    const double b = clampWiper(bass), t = clampWiper(treble);
    const C s(0, 2 * kPi * f);
    // Unknowns 0..7: nodes 1..7 and out; 8: op-amp current. Node "in" is 1 V, node -1 is ground.
    enum { N1, N2, N3, N4, N5, N6, N7, OUT, IOP, IN = 100, GND = -1 };
    Eigen::Matrix<C, 9, 9> Y = Eigen::Matrix<C, 9, 9>::Zero();
    Eigen::Matrix<C, 9, 1> rhs = Eigen::Matrix<C, 9, 1>::Zero();
    auto branch = [&](int a, int c, C y) {
        for (int k = 0; k < 2; ++k) {
            int row = k ? c : a, other = k ? a : c;
            if (row == IN || row == GND) continue;
            Y(row, row) += y;
            if (other == IN)
                rhs(row) += y;  // 1 V at the input
            else if (other != GND)
                Y(row, other) -= y;
        }
    };
    branch(IN, N1, 1 / 11000.0);
    branch(N2, N3, 1 / (b * 1e5));
    branch(N3, N1, 1 / ((1 - b) * 1e5));
    branch(N2, OUT, 1 / 11000.0);
    branch(N1, N2, s * 0.05e-6);
    branch(N3, N4, 1 / 11000.0);
    branch(N4, N6, s * 0.005e-6);
    branch(IN, N5, 1 / 3600.0);
    branch(N7, N6, 1 / (t * 5e5));
    branch(N6, N5, 1 / ((1 - t) * 5e5));
    branch(N7, OUT, 1 / 3600.0);
    Y(OUT, IOP) = 1;   // the op-amp drives the output node
    Y(IOP, N4) = -1;   // and holds V(GND) - V(4) at 0
    Eigen::Matrix<C, 9, 1> v = Y.fullPivLu().solve(rhs);
    return v(OUT);
}

// The engine's response to a sine (or to DC for f = 0) after it has settled,
// measured over whole periods.
std::complex<double> measuredGain(double bass, double treble, double f, double fs) {
    auto d = makeDriver(readText(sourcePath("examples/baxandall.xml")), static_cast<float>(fs), 512);
    d->findControl("Bass")->setValue(static_cast<float>(bass));
    d->findControl("Treble")->setValue(static_cast<float>(treble));
    const size_t settle = static_cast<size_t>(fs), measure = static_cast<size_t>(fs / 2);
    std::vector<float> block(512);
    std::complex<double> acc = 0;
    for (size_t n = 0; n < settle + measure; n += 512) {
        for (size_t i = 0; i < 512; ++i) block[i] = f > 0 ? static_cast<float>(std::sin(2 * kPi * f * (n + i) / fs)) : 1.0f;
        d->process({block.data()}, 512);
        for (size_t i = 0; i < 512; ++i)
            if (n + i >= settle && n + i < settle + measure)
                acc += static_cast<double>(d->getResults()[0][i]) *
                       (f > 0 ? 2.0 * std::polar(1.0, -2 * kPi * f * (n + i) / fs) : std::complex<double>(1, 0));
    }
    acc /= static_cast<double>(measure);
    // The sine starts at phase -90 degrees of the complex exponential.
    return f > 0 ? acc * std::complex<double>(0, 1) : acc;
}

} // namespace

// At the extreme knob settings the gain at DC and at 20 Hz must be what a solve
// of the circuit in double gives, to float rounding of the output: the DC gain
// does not depend on Treble. (A float solve is off by some 5e-5 here, a float
// inverse applied to the rhs by 7e-4.)
TEST(CircuitBaxandall, GainAtExtremeSettingsAgreesWithTheDoubleSolution) {
    const double fs = 48000;
    for (double bass : {0.0, 1.0}) {
        for (double treble : {0.0, 1.0}) {
            const double dcExact = -(clampWiper(bass) * 1e5 + 11000) / (11000 + (1 - clampWiper(bass)) * 1e5);
            EXPECT_NEAR(dcExact, analogueGain(bass, treble, 1e-9).real(), 1e-9 * std::fabs(dcExact));
            const std::complex<double> dc = measuredGain(bass, treble, 0, fs);
            const double fa = fs / kPi * std::tan(kPi * 20 / fs);  // the prewarped image of 20 Hz
            const std::complex<double> exact20 = analogueGain(bass, treble, fa), low = measuredGain(bass, treble, 20, fs);
            const double dcError = std::fabs(dc.real() / dcExact - 1), lowError = std::abs(low / exact20 - 1.0);
            std::printf("bass %.0f treble %.0f: DC gain %.7f (exact %.7f, relative error %.2e), 20 Hz relative error %.2e\n",
                        bass, treble, dc.real(), dcExact, dcError, lowError);
            EXPECT_LT(dcError, 1e-6) << "bass " << bass << " treble " << treble;
            EXPECT_LT(lowError, 1e-6) << "bass " << bass << " treble " << treble;
        }
    }
}
