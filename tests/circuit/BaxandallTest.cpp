// The tone stack against ngspice: under the trapezoidal rule our circuit is the
// bilinear transform of the analogue one, so our response at f equals ngspice's
// AC response at the prewarped frequency (fs/pi) tan(pi f / fs).
#include <cmath>
#include <complex>
#include <fstream>

#include "circuit/Circuit.h"
#include "solvers/LinearSolver.h"
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
    auto* solver = dynamic_cast<LinearSolver*>(circuit->getAnalysis()->solver.get());
    ASSERT_NE(nullptr, solver);
    std::vector<float> x(64);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(0.01f * i);
    d->process({x.data()}, 64);  // first block delivers the initial control values
    long before = solver->factorizations();
    for (int i = 0; i < 10; ++i) d->process({x.data()}, 64);
    EXPECT_EQ(before, solver->factorizations());  // a resting circuit never factors
    d->findControl("Bass")->setValue(0.9f);
    d->findControl("Bass")->setValue(0.8f);
    d->findControl("Treble")->setValue(0.1f);
    d->process({x.data()}, 1);
    EXPECT_EQ(before + 1, solver->factorizations());  // several changes, one factorisation, on that sample
    d->process({x.data()}, 64);
    EXPECT_EQ(before + 1, solver->factorizations());

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
