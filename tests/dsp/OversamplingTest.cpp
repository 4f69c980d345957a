// IirInterpolator and IirDecimator, alone and in examples/oversampling.xml.
#include <algorithm>
#include <cmath>
#include <complex>

#include "dsp/IirDecimator.h"
#include "dsp/IirInterpolator.h"
#include "dsp/DSPContext.h"
#include "dsp/DSPGraph.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
const PropertyMap kDocProps = {{"RelativeCornerFrequency", "0.485"}, {"Factor", "4"}, {"Order", "2"},
                               {"Type", "Butterworth"}, {"Cascade", "4"}};

// Filters keep a plain pointer to their context: the contexts of these tests live to the end.
std::shared_ptr<DSPContext> newContext() {
    static std::vector<std::shared_ptr<DSPContext>> contexts;
    contexts.push_back(std::make_shared<DSPContext>());
    return contexts.back();
}

template <typename T>
std::unique_ptr<T> make(PropertyMap p, float rate, int block) {
    std::unique_ptr<T> f(new T());
    auto ctx = newContext();
    f->init("r", std::make_shared<PropertyMap>(p), ctx);
    f->setMaxBlockSize(block);
    f->sampleRateChanged(rate);
    return f;
}

// Response of an interpolator at factor F to an impulse, at the high rate.
std::vector<double> interpolatorImpulse(int factor, float lowRate, size_t inputs) {
    PropertyMap p = kDocProps;
    p["Factor"] = std::to_string(factor);
    auto f = make<IirInterpolator>(p, lowRate, static_cast<int>(inputs));
    std::vector<float> x(inputs, 0.0f);
    x[0] = 1.0f;
    BufferList in = {x.data()};
    f->process(in, inputs);
    return std::vector<double>(f->getOutput(0), f->getOutput(0) + inputs * factor);
}

double gainDb(const std::vector<double>& h, double f, double rate) {
    std::complex<double> H = 0;
    for (size_t n = 0; n < h.size(); ++n) H += h[n] * std::polar(1.0, -2 * M_PI * f / rate * n);
    return 20 * std::log10(std::abs(H));
}
} // namespace

TEST(DspOversampling, RatesBlockSizesAndLengthsFollowTheFactorDuringARender) {
    auto d = makeDriver(readText(sourcePath("examples/oversampling.xml")), 48000, 256);
    auto control = d->findControl("Oversampling");
    Graph& shaper = d->getGraph("Shaper");
    Graph& g2 = d->getGraph("G2");
    std::vector<float> x(256);
    long n = 0;
    for (int factor : {4, 1, 2, 4, 2, 1, 4}) {
        control->setValue(static_cast<float>(factor));
        for (int block = 0; block < 40; ++block) {
            for (float& v : x) v = 0.5f * std::sin(2 * M_PI * 500 * (n++) / 48000.0);
            ASSERT_NO_THROW(d->process({x.data()}, 256));
            const float* y = d->getResults()[0];
            for (int i = 0; i < 256; ++i) ASSERT_TRUE(std::isfinite(y[i])) << factor;
        }
        EXPECT_DOUBLE_EQ(factor, shaper.getInputMultiplier());
        EXPECT_DOUBLE_EQ(factor, g2.getInputMultiplier());
        EXPECT_DOUBLE_EQ(1.0, g2.getOutputMultiplier());
        EXPECT_FLOAT_EQ(48000.0f * factor, shaper.getContext()->getSampleRate());
        EXPECT_GE(shaper.getMaxBlockSize(), 256 * factor);
        // The whole block is output: the last samples follow the shaped sine (peak tanh(0.75)).
        const float* y = d->getResults()[0];
        float peak = 0;
        for (int i = 0; i < 256; ++i) peak = std::max(peak, std::fabs(y[i]));
        EXPECT_NEAR(std::tanh(0.75), peak, 0.03) << factor;
        EXPECT_GT(std::fabs(y[250]) + std::fabs(y[255]), 0.01f) << factor;
    }
}

TEST(DspOversampling, ElementsKeepLevelLengthAndBuffers) {
    // A constant into a factor-4 interpolator comes out as the same constant.
    auto up = make<IirInterpolator>(kDocProps, 48000, 64);
    std::vector<float> ones(64, 1.0f);
    BufferList in = {ones.data()};
    for (int i = 0; i < 20; ++i) up->process(in, 64);
    // Its mean over each group of four is the constant; what remains of the images is small.
    for (int i = 0; i < 256; i += 4) {
        const float* y = up->getOutput(0) + i;
        EXPECT_NEAR(1.0, (y[0] + y[1] + y[2] + y[3]) / 4, 1e-4);
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(1.0, y[k], 2e-3);
    }
    // At factor 1 the corner sits just below the Nyquist frequency and the poles near z = -1:
    // a bias of 102 V still comes out steady, with no limit cycle (in float it swung by 1 mV).
    PropertyMap unity = kDocProps;
    unity["Factor"] = "1";
    auto same = make<IirDecimator>(unity, 48000, 512);
    std::vector<float> bias(512, 102.025f);
    BufferList bbias = {bias.data()};
    float lo = 1e9f, hi = -1e9f;
    for (int block = 0; block < 40; ++block) {
        same->process(bbias, 512);
        if (block < 20) continue;
        for (int i = 0; i < 512; ++i) {
            lo = std::min(lo, same->getOutput(0)[i]);
            hi = std::max(hi, same->getOutput(0)[i]);
        }
    }
    EXPECT_LE(hi - lo, 2e-5f);
    EXPECT_NEAR(102.025, lo, 1e-3);
    // A decimator with n = 10 and factor 4 keeps samples 0, 4, 8 but copies only 10 / 4 = 2.
    auto down = make<IirDecimator>(kDocProps, 192000, 16);
    std::vector<float> ramp(10, 0.0f), out(3, -1.0f);
    BufferList rin = {ramp.data()}, rout = {out.data()};
    down->process(rin, rout, 10);
    EXPECT_EQ(-1.0f, out[2]);
    // Factor 2.5 rounds to 3 while the graph multiplier takes 2.5.
    auto graph = std::make_shared<DSPGraph>();
    auto ctx = std::make_shared<DSPContext>();
    ctx->setGraph(graph.get());
    auto f = std::unique_ptr<IirInterpolator>(new IirInterpolator());
    f->init("r", std::make_shared<PropertyMap>(kDocProps), ctx);
    f->propertyChanged("Factor", 2.5f);
    EXPECT_EQ(3, f->getFactor());
    EXPECT_DOUBLE_EQ(2.5, graph->getMultiplier());
    // From 4 to 2 and back: the buffers are reused.
    scalar* before = up->getOutput(0);
    up->propertyChanged("Factor", 2.0f);
    up->setMaxBlockSize(64);
    up->propertyChanged("Factor", 4.0f);
    up->setMaxBlockSize(64);
    EXPECT_EQ(before, up->getOutput(0));
    // A block of maxBlockSize passes, one more frame throws.
    std::vector<float> big(65, 0.0f);
    BufferList bin = {big.data()};
    EXPECT_NO_THROW(up->process(bin, 64));
    EXPECT_EQ("IirInterpolator: framesPerBuffer (260) is greater than maxBlockSize (256).",
              messageOf([&] { up->process(bin, 65); }));
}

TEST(DspOversampling, PropertyMessages) {
    auto bad = [](PropertyMap p) {
        return messageOf([&] { make<IirDecimator>(p, 48000, 16); });
    };
    PropertyMap p = kDocProps;
    p["Cascade"] = "1";
    EXPECT_EQ("IirDecimator: Cascade must be greater than 1. Cascade=1", bad(p));
    p = kDocProps;
    p["RelativeCornerFrequency"] = "0.5";
    EXPECT_EQ("IirDecimator: Invalid relative corner frequency. RelativeCornerFrequency must be iin (0.0, 0.5). "
              "RelativeCornerFrequency=0.5",
              bad(p));
    p = kDocProps;
    p["Type"] = "Elliptic";
    EXPECT_EQ("IirDecimator: Unknown Type: Elliptic", bad(p));
    p = kDocProps;
    p.erase("Factor");
    EXPECT_EQ("IirDecimator: Factor must be specified", bad(p));
    p = {{"Type", "BiQuad"}, {"Factor", "2"}, {"RelativeCornerFrequency", "0.4"}};
    EXPECT_EQ("IirDecimator: BiQuads are not yet supported!", bad(p));
    auto ok = make<IirDecimator>(kDocProps, 48000, 16);
    EXPECT_EQ("IirInterpolator: Unknown property Rate", messageOf([&] { ok->propertyChanged("Rate", 1.0f); }));
    EXPECT_EQ("IirDecimator: Iteration is not supported.",
              messageOf([&] { ok->iterate(std::make_shared<ScalarVector>(1), 0, 0); }));
}

TEST(DspOversampling, PassbandAndImageRejectionReport) {
    // For the record (see docs/oversampling.md): attenuation of the interpolator at 10 and
    // 20 kHz, and how far the first image (rate - f) of a tone at f lies below the tone.
    std::printf("rate   factor  at 10k    at 20k    image of 1k  image of 10k  image of 20k\n");
    for (float rate : {44100.0f, 48000.0f}) {
        for (int factor : {2, 4}) {
            auto h = interpolatorImpulse(factor, rate, 4096);
            const double hi = rate * factor;
            auto level = [&](double f) { return gainDb(h, f, hi) - gainDb(h, 0, hi); };
            auto image = [&](double f) { return gainDb(h, f, hi) - gainDb(h, rate - f, hi); };
            std::printf("%.0f  %d  %8.3f dB  %8.3f dB  %8.1f dB  %8.1f dB  %8.1f dB\n", rate, factor, level(10000),
                        level(20000), image(1000), image(10000), image(20000));
            // Each input sample is worth `factor` high-rate samples: the level is kept.
            EXPECT_NEAR(20 * std::log10(factor), gainDb(h, 0, hi), 0.01);
            // Four Butterworth sections at 0.485 of the low rate: about 12 dB down at the corner.
            EXPECT_GT(level(10000), -1.0);
            EXPECT_LT(level(20000), -5.0);
            EXPECT_GT(image(1000), 55.0);
            EXPECT_GT(image(10000), 35.0);
        }
    }
}
