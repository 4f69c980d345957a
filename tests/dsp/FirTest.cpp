// FIR and polyphase elements against direct computation, and their design.
#include <random>

#include "dsp/Fir.h"
#include "dsp/KaiserDesign.h"
#include "dsp/PolyphaseDownsampler.h"
#include "dsp/PolyphaseUpsampler.h"
#include "dsp/ResamplingDecimator.h"
#include "dsp/ResamplingUpsampler.h"
#include "dsp/DSPContext.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
std::string list(const std::vector<float>& v) {
    std::string s;
    for (float x : v) s += (s.empty() ? "" : "|") + std::to_string(x);
    return s;
}

// y[n] = sum_k h[k] x[n - k], in double.
std::vector<double> direct(const std::vector<float>& x, const std::vector<float>& h) {
    std::vector<double> y(x.size(), 0.0);
    for (size_t n = 0; n < x.size(); ++n)
        for (size_t k = 0; k < h.size() && k <= n; ++k) y[n] += static_cast<double>(h[k]) * x[n - k];
    return y;
}
} // namespace

TEST(DspFir, AgreesWithDirectConvolutionAcrossAnyBlocks) {
    auto x = noise(700, 1);
    for (int taps : {1, 2, 5, 37, 256}) {
        auto h = noise(taps, 10 + taps);
        auto ref = direct(x, h);
        for (int block : {1, 3, 64, 700}) {
            auto f = makeFilter<Fir>({{"Coefficients", list(h)}}, block);
            for (size_t at = 0; at < x.size(); at += block) {
                size_t n = std::min<size_t>(block, x.size() - at);
                BufferList in = {x.data() + at};
                f->process(in, n);
                for (size_t i = 0; i < n; ++i) ASSERT_NEAR(ref[at + i], f->getOutput(0)[i], 1e-4) << taps << " " << block;
            }
        }
    }
    // One tap of 1 passes; taps 0, 1 delay by one sample across blocks.
    auto delay = makeFilter<Fir>({{"Coefficients", "0|1"}}, 4);
    std::vector<float> a = {1, 2, 3, 4}, b = {5, 6, 7, 8};
    BufferList in = {a.data()};
    delay->process(in, 4);
    EXPECT_EQ(3.0f, delay->getOutput(0)[3]);
    in[0] = b.data();
    delay->process(in, 4);
    EXPECT_EQ(4.0f, delay->getOutput(0)[0]);
    EXPECT_EQ(8.0f, delay->process(3.0f));  // the sample path goes on from the block's last input
    EXPECT_EQ(3.0f, delay->process(0.0f));
}

TEST(DspFir, LimitsAndMessages) {
    Fir f;
    std::vector<float> t(257, 0.1f);
    EXPECT_EQ("Maximum filter order is 255. You requested: 256", messageOf([&] { f.setCoefficients(t.data(), 257); }));
    EXPECT_NO_THROW(f.setCoefficients(t.data(), 256));
    EXPECT_EQ("Fir: b cannot be null", messageOf([&] { f.setCoefficients(nullptr, 3); }));
    auto g = makeFilter<Fir>({{"Coefficients", "1"}}, 8);
    EXPECT_EQ("Fir: Invalid property name Taps", messageOf([&] { g->propertyChanged("Taps", std::make_shared<ScalarVector>(1)); }));
    EXPECT_EQ("Fir: Invalid maxBlockSize0", messageOf([&] { g->setMaxBlockSize(0); }));
    EXPECT_EQ("Factor is not defined. PolyphaseUpsampler name=f", messageOf([] { makeFilter<PolyphaseUpsampler>({}, 4); }));
    EXPECT_EQ("Factor must be greater than 0. 0 PolyphaseDownsampler name=f",
              messageOf([] { makeFilter<PolyphaseDownsampler>({{"Factor", "0"}}, 4); }));
    auto down = makeFilter<PolyphaseDownsampler>({{"Factor", "2"}, {"Coefficients", "1"}}, 8);
    EXPECT_EQ("PolyphaseDownsampler: getLastIterationResult is not supported.",
              messageOf([&] { down->getLastIterationResults(); }));
}

TEST(DspFir, PolyphaseAgreesWithZeroStuffingAndDecimation) {
    auto x = noise(240, 3);
    auto h = noise(23, 4);
    for (int factor : {2, 3, 4}) {
        // Upsampling: the FIR over the zero-stuffed signal.
        std::vector<float> stuffed(x.size() * factor, 0.0f);
        for (size_t i = 0; i < x.size(); ++i) stuffed[i * factor] = x[i];
        auto ref = direct(stuffed, h);
        auto up = makeFilter<PolyphaseUpsampler>({{"Factor", std::to_string(factor)}, {"Coefficients", list(h)}}, 16);
        for (size_t block : {1u, 7u, 16u}) {
            auto u = makeFilter<PolyphaseUpsampler>({{"Factor", std::to_string(factor)}, {"Coefficients", list(h)}}, 16);
            for (size_t at = 0; at < x.size(); at += block) {
                size_t n = std::min(block, x.size() - at);
                BufferList in = {x.data() + at};
                u->process(in, n);
                for (size_t i = 0; i < n * factor; ++i)
                    ASSERT_NEAR(ref[at * factor + i], u->getOutput(0)[i], 1e-4) << factor << " " << block;
            }
        }
        // Downsampling: every factor-th output of the FIR.
        auto full = direct(x, h);
        auto down = makeFilter<PolyphaseDownsampler>({{"Factor", std::to_string(factor)}, {"Coefficients", list(h)}}, 240);
        const size_t block = 24;  // a multiple of every factor, dividing the 240 samples
        for (size_t at = 0; at < x.size(); at += block) {
            BufferList in = {x.data() + at};
            down->process(in, block);
            for (size_t j = 0; j < block / factor; ++j)
                ASSERT_NEAR(full[at + j * factor], down->getOutput(0)[j], 1e-4) << factor << " at " << at << " j " << j;
        }
    }
    // Factor 2 and five samples: outputs at 0, 2 and 4.
    auto d = makeFilter<PolyphaseDownsampler>({{"Factor", "2"}, {"Coefficients", "1"}}, 8);
    std::vector<float> five = {1, 2, 3, 4, 5};
    BufferList in = {five.data()};
    d->process(in, 5);
    EXPECT_EQ(1.0f, d->getOutput(0)[0]);
    EXPECT_EQ(3.0f, d->getOutput(0)[1]);
    EXPECT_EQ(5.0f, d->getOutput(0)[2]);
}

TEST(DspFir, KaiserResamplersDesignTheirTaps) {
    auto up = makeFilter<ResamplingUpsampler>({{"RelativeCornerFrequency", "0.45"}, {"Order", "10"}, {"Factor", "4"}, {"Attenuation", "60"}}, 8);
    EXPECT_EQ(12u, up->getTaps());  // 10 rounded up to a multiple of 4; the last two are 0
    auto taps = KaiserDesign::lowpass(31, 0.2f, 80, 1);
    double sum = 0;
    for (float t : taps) sum += t;
    EXPECT_NEAR(1.0, sum, 1e-6);
    for (size_t i = 0; i < taps.size(); ++i) EXPECT_FLOAT_EQ(taps[i], taps[taps.size() - 1 - i]);  // linear phase
    // A constant through the upsampler comes out at the same level.
    std::vector<float> ones(8, 1.0f);
    BufferList in = {ones.data()};
    for (int i = 0; i < 4; ++i) up->process(in, 8);
    double mean = 0;
    for (int i = 0; i < 32; ++i) mean += up->getOutput(0)[i];
    EXPECT_NEAR(1.0, mean / 32, 1e-5);
    auto dec = makeFilter<ResamplingDecimator>({{"RelativeCornerFrequency", "0.45"}, {"Order", "33"}, {"Factor", "2"}, {"Attenuation", "60"}}, 8);
    EXPECT_EQ(33u, dec->getTaps());
    EXPECT_NEAR(1.0, KaiserDesign::besselI0(0.0), 1e-12);
    EXPECT_NEAR(11.301921952136330, KaiserDesign::besselI0(4.0), 1e-5);  // I0(4) to the polynomial's accuracy
    EXPECT_EQ("ResamplingUpsampler: Attenuation must be greater than 1. Attenuation=1",
              messageOf([] { makeFilter<ResamplingUpsampler>({{"RelativeCornerFrequency", "0.4"}, {"Order", "8"}, {"Factor", "2"}, {"Attenuation", "1"}}, 4); }));
    EXPECT_EQ("ResamplingDecimator: RelativeCornerFrequency and AbsoluteCornerFrequency are defined. Only one is allowed.",
              messageOf([] { makeFilter<ResamplingDecimator>({{"RelativeCornerFrequency", "0.4"}, {"AbsoluteCornerFrequency", "100"}, {"Order", "8"}, {"Factor", "2"}, {"Attenuation", "60"}}, 4); }));
    EXPECT_EQ("ResamplingDecimator: Either RelativeCornerFrequency or AbsoluteCornerFrequency must be specified.",
              messageOf([] { makeFilter<ResamplingDecimator>({{"Order", "8"}, {"Factor", "2"}, {"Attenuation", "60"}}, 4); }));
}
