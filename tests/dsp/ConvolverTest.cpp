// The convolver against direct convolution, for any response and block pattern.
#include <random>

#include "dsp/Convolver.h"
#include "dsp/DSPContext.h"
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

// A long response in partitions of growing size against direct convolution. The
// response is sparse past its head, so the reference stays cheap while every
// level of the plan, and the ring of pending output, take part.
TEST(DspConvolver, LongResponseInGrowingPartitionsEqualsDirectConvolution) {
    std::mt19937 rng(15);
    std::uniform_real_distribution<float> u(-1, 1);
    const unsigned irLength = 100000;
    auto h = std::make_shared<ScalarVector>(irLength, 0.0f);
    for (unsigned k = 0; k < 600; ++k) (*h)[k] = u(rng);
    std::uniform_int_distribution<unsigned> where(600, irLength - 1);
    for (int t = 0; t < 300; ++t) (*h)[where(rng)] = u(rng);
    (*h)[irLength - 1] = 0.5f;  // the very last sample counts too
    std::vector<std::pair<unsigned, float>> taps;
    double norm = 0;
    for (unsigned k = 0; k < irLength; ++k)
        if ((*h)[k] != 0) {
            taps.emplace_back(k, (*h)[k]);
            norm += std::fabs((*h)[k]);
        }
    const size_t frames = 150000;
    std::vector<float> x(frames);
    for (float& v : x) v = u(rng);

    // Blocks of 256, which fall on the first level's chunks and share its transforms;
    // random blocks; and blocks of 256 with now and then a split one in between, so
    // that the two ways alternate.
    for (int pattern : {0, 1, 2}) {
        const bool varying = pattern == 1;
        auto conv = makeConvolver(static_cast<int>(irLength), 256);
        conv->propertyChanged("ImpulseResponse", h);
        const auto plan = conv->getTail().planFor(irLength, Convolver::headLength(256));
        ASSERT_GE(plan.size(), 2u);  // more than one size of partition
        unsigned covered = Convolver::headLength(256);
        for (auto& l : plan) {
            EXPECT_EQ(covered, l.start);
            EXPECT_GE(l.start, l.size);  // what lets a level add to the output without latency
            covered += l.size * l.count;
        }
        EXPECT_GE(covered, irLength);
        std::uniform_int_distribution<int> sizes(1, 256);
        size_t at = 0;
        double worst = 0;
        while (at < frames) {
            size_t n = varying ? sizes(rng) : 256;
            if (pattern == 2 && (at / 256) % 9 == 4) n = at % 256 == 0 ? 100 : 256 - at % 256;
            n = std::min<size_t>(n, frames - at);
            BufferList in = {x.data() + at};
            conv->process(in, n);
            for (size_t i = 0; i < n; i += varying ? 1 : 7) {
                double ref = 0;
                for (auto& t : taps)
                    if (t.first <= at + i) ref += t.second * static_cast<double>(x[at + i - t.first]);
                worst = std::max(worst, std::fabs(ref - conv->getOutput(0)[i]));
            }
            at += n;
        }
        EXPECT_LT(worst, 2e-6 * norm) << "block pattern " << pattern;
    }
}

// After reset the output is that of a new convolver; a new response of the same
// length takes over at once with the input so far.
TEST(DspConvolver, ResetAndNewResponseOfALongTail) {
    const unsigned irLength = 20000;
    auto delay = std::make_shared<ScalarVector>(irLength, 0.0f);
    (*delay)[irLength - 1] = 1;  // a pure delay through the last partition
    auto conv = makeConvolver(static_cast<int>(irLength), 128);
    conv->propertyChanged("ImpulseResponse", delay);
    std::vector<float> x(irLength + 1000);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(0.01f * i) + 0.1f * (i % 7);
    std::vector<float> y;
    auto run = [&](size_t from, size_t to) {
        for (size_t at = from; at < to; at += 100) {
            BufferList in = {x.data() + at};
            const size_t n = std::min<size_t>(100, to - at);
            conv->process(in, n);
            y.insert(y.end(), conv->getOutput(0), conv->getOutput(0) + n);
        }
    };
    run(0, 5000);
    conv->reset();
    y.clear();
    run(0, x.size());
    for (size_t i = 0; i < x.size(); i += 37) {
        const float expect = i >= irLength - 1 ? x[i - (irLength - 1)] : 0.0f;
        ASSERT_NEAR(expect, y[i], 1e-5) << i;
    }
    // Halving the response mid-stream: the delayed signal continues at half level.
    auto half = std::make_shared<ScalarVector>(*delay);
    (*half)[irLength - 1] = 0.5f;
    conv->propertyChanged("ImpulseResponse", half);
    y.clear();
    std::vector<float> more(500, 0.0f);
    BufferList in = {more.data()};
    conv->process(in, 100);
    EXPECT_NEAR(0.5f * x[x.size() - irLength + 1], conv->getOutput(0)[0], 1e-5);
}
