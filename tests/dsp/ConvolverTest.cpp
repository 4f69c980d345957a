// The convolver against direct convolution, for any response and block pattern.
#include <random>

#include "dsp/Convolver.h"
#include "engine/DSPContext.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
std::unique_ptr<Convolver> makeConvolver(int maxIr, int block) {
    static std::vector<std::shared_ptr<DSPContext>> contexts;
    contexts.push_back(std::make_shared<DSPContext>());
    std::unique_ptr<Convolver> c(new Convolver());
    c->init("c", std::make_shared<PropertyMap>(PropertyMap{{"MaxIRSize", std::to_string(maxIr)}}), contexts.back());
    c->setMaxBlockSize(block);
    return c;
}
} // namespace

TEST(DspConvolver, EqualsDirectConvolutionForRandomResponsesAndBlocks) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> u(-1, 1);
    const size_t frames = 6000;
    std::vector<float> x(frames);
    for (float& v : x) v = u(rng);
    struct Case {
        size_t irLength;
        int maxBlock;
        bool varying;
    } cases[] = {{1, 1, false}, {2, 7, true}, {5, 1024, true}, {64, 64, false}, {333, 100, true},
                 {1000, 512, false}, {2048, 1024, true}, {5000, 256, true}, {4999, 1, false}};
    for (const Case& c : cases) {
        auto h = std::make_shared<ScalarVector>(c.irLength);
        double norm = 0;
        for (float& v : *h) {
            v = u(rng);
            norm += std::fabs(v);
        }
        auto conv = makeConvolver(static_cast<int>(c.irLength), c.maxBlock);
        conv->propertyChanged("ImpulseResponse", h);
        std::uniform_int_distribution<int> sizes(1, c.maxBlock);
        size_t at = 0;
        const size_t checkUntil = c.maxBlock == 1 ? 1500 : frames;  // one-sample blocks are slow: check a stretch
        double worst = 0;
        while (at < checkUntil) {
            size_t n = std::min<size_t>(c.varying ? sizes(rng) : c.maxBlock, checkUntil - at);
            BufferList in = {x.data() + at};
            conv->process(in, n);
            for (size_t i = 0; i < n; ++i) {
                double ref = 0;
                for (size_t k = 0; k < h->size() && k <= at + i; ++k) ref += (*h)[k] * static_cast<double>(x[at + i - k]);
                worst = std::max(worst, std::fabs(ref - conv->getOutput(0)[i]));
            }
            at += n;
        }
        // Float rounding of transforms of this size, relative to the sum of |h|.
        EXPECT_LT(worst, 2e-6 * norm + 1e-6) << c.irLength << " " << c.maxBlock;
    }
}

TEST(DspConvolver, SizesDelaysAndMessages) {
    const unsigned expected[] = {1, 2, 3, 4, 5, 6, 8, 8};
    for (unsigned m = 1; m <= 8; ++m) EXPECT_EQ(expected[m - 1], Convolver::next(m)) << m;
    EXPECT_EQ(12u, Convolver::next(11));
    EXPECT_EQ(1536u, Convolver::sizeFor(512, 1000));
    auto c = makeConvolver(3, 8);
    c->propertyChanged("ImpulseResponse", std::make_shared<ScalarVector>(ScalarVector{0, 0, 1, 9, 9}));  // cut to 3: a delay of 2
    std::vector<float> x = {1, 2, 3, 4, 5, 6, 7, 8};
    BufferList in = {x.data()};
    c->process(in, 8);
    EXPECT_NEAR(0.0, c->getOutput(0)[1], 1e-6);
    EXPECT_NEAR(1.0, c->getOutput(0)[2], 1e-6);
    EXPECT_NEAR(6.0, c->getOutput(0)[7], 1e-5);
    EXPECT_EQ("Convolver: Invalid impulse response. IR is empty.",
              messageOf([&] { c->propertyChanged("ImpulseResponse", std::make_shared<ScalarVector>()); }));
    c->process(in, 8);  // the old response stands
    EXPECT_NEAR(6.0, c->getOutput(0)[7], 1e-5);
    EXPECT_EQ("MaxIRSize must be greater than or equal to 0. Convolver name=c MaxIRSize=0", messageOf([] { makeConvolver(0, 4); }));
    EXPECT_EQ("Convolver: Iteration is not supported.",
              messageOf([&] { c->iterate(std::make_shared<ScalarVector>(1), 0, 0); }));
}
