// Gain, Switch, Mixer, Relaxation, DifferentialFilter and the port tables.
#include "dsp/BasicFilterMeta.h"
#include "dsp/DifferentialFilter.h"
#include "dsp/Gain.h"
#include "dsp/Mixer.h"
#include "dsp/Relaxation.h"
#include "dsp/Switch.h"
#include "dsp/SwitchMeta.h"
#include "dsp/DSPContext.h"
#include "engine/InvalidArgumentException.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
template <typename T>
std::unique_ptr<T> make(const PropertyMap& p, int block = 16) {
    return makeFilter<T>(p, block);
}
} // namespace

TEST(DspBasicElements, GainAndBlockSizes) {
    auto g = make<Gain>({{"Gain", "-1"}});
    std::vector<float> x = {1, 2, 3};
    BufferList in = {x.data()};
    g->process(in, 3);
    EXPECT_FLOAT_EQ(-3, g->getOutput(0)[2]);
    g->propertyChanged("Gain", 0.0f);
    g->process(in, 3);
    EXPECT_FLOAT_EQ(0, g->getOutput(0)[0]);
    scalar* before = g->getOutput(0);
    EXPECT_EQ("Gain: Invalid maxBlockSize0", messageOf([&] { g->setMaxBlockSize(0); }));
    g->setMaxBlockSize(8);  // smaller: keeps the buffer
    EXPECT_EQ(before, g->getOutput(0));
    EXPECT_EQ(16, g->getMaxBlockSize());
    EXPECT_EQ("Gain: Invalid output index: 1", messageOf([&] { g->getOutput(1); }));
    EXPECT_EQ("Gain: Invalid property name Level", messageOf([&] { g->propertyChanged("Level", 1.0f); }));
    EXPECT_EQ("Gain is not defined. Gain name=f", messageOf([] { make<Gain>({}); }));
}

TEST(DspBasicElements, SwitchPositionsAndChecks) {
    auto s = make<Switch>({{"NumberOfInputs", "2"}, {"Position", "1"}});
    std::vector<float> a = {1, 1}, b = {2, 2};
    BufferList in = {a.data(), b.data()};
    s->process(in, 2);
    EXPECT_FLOAT_EQ(2, s->getOutput(0)[0]);
    s->propertyChanged("Position", 0.4f);
    s->process(in, 2);
    EXPECT_FLOAT_EQ(1, s->getOutput(0)[0]);
    s->propertyChanged("Position", 1.4f);
    EXPECT_EQ(1, s->getPosition());
    EXPECT_EQ("Switch: Invalid position 2. NumberOfInputs=2", messageOf([&] { s->propertyChanged("Position", 1.5f); }));
    EXPECT_EQ(2, s->getPosition());  // stored before the check
    EXPECT_EQ("Switch: NumberOfInputs must be greater than 1.",
              messageOf([] { make<Switch>({{"NumberOfInputs", "1"}}); }));
    EXPECT_EQ("Switch: Number of inputs must be specified", messageOf([] { make<Switch>({}); }));
    auto meta = s->getMeta();
    EXPECT_EQ(1, meta->inputIndex("in_1"));
    EXPECT_EQ(0, meta->inputIndex("in_"));
    EXPECT_EQ("SwitchMeta: Invalid input portin_2, NumberOfInputs=2", messageOf([&] { meta->inputIndex("in_2"); }));
    EXPECT_EQ("Invalid input port name: x. INput port name must start with \"in_\" followed by a number.",
              messageOf([&] { meta->inputIndex("x"); }));
}

TEST(DspBasicElements, MixerFaders) {
    EXPECT_EQ("Number of Faders must be at least 2. Number of Faders: 1 Mixer name=f",
              messageOf([] { make<Mixer>({{"Faders", "0.5"}}); }));
    EXPECT_EQ("Invalid fader value: 1.2", messageOf([] { make<Mixer>({{"Faders", "0.5|1.2"}}); }));
    EXPECT_EQ("Faders is not defined. Mixer name=f", messageOf([] { make<Mixer>({}); }));
    auto m = make<Mixer>({{"Faders", "0.5|0.25"}});
    std::vector<float> a = {4}, b = {8};
    BufferList in = {a.data(), b.data()};
    m->process(in, 1);
    EXPECT_FLOAT_EQ(4, m->getOutput(0)[0]);
    m->propertyChanged("1", 1.0f);
    m->process(in, 1);
    EXPECT_FLOAT_EQ(10, m->getOutput(0)[0]);
    EXPECT_EQ("Mixer: Invalid fader index 2", messageOf([&] { m->propertyChanged("2", 1.0f); }));
}

TEST(DspBasicElements, RelaxationIsIterationOnly) {
    auto r = make<Relaxation>({{"Relaxation", "1"}}, 0);
    auto in = std::make_shared<ScalarVector>(1, 3.0f);
    EXPECT_FLOAT_EQ(3, r->iterate(in, 0, 0)[0]);
    EXPECT_FLOAT_EQ(0, r->process(1.0f));
    BufferList buffers = {in->data()};
    EXPECT_EQ("Relaxation: Block processing mode is not supported. Name: f",
              messageOf([&] { r->process(buffers, 1); }));
    EXPECT_EQ("Relaxation: Relaxation must be greater than 0. Relaxation=0 Relaxation name=f",
              messageOf([] { make<Relaxation>({{"Relaxation", "0"}}, 0); }));
    // Extrapolation between frames predicts linearly.
    auto e = make<Relaxation>({{"Relaxation", "1"}, {"Extrapolate", "true"}}, 0);
    (*in)[0] = 1;
    e->iterate(in, 0, 0);
    e->endIteration(0);  // p = 2*1 - 0
    EXPECT_FLOAT_EQ(2, e->getLastIterationResults()[0]);
}

TEST(DspBasicElements, DifferentialFilterForEveryBlockSize) {
    auto d = make<DifferentialFilter>({{"Gain", "2"}});
    auto c = make<DifferentialFilter>({{"Gain", "2"}, {"ConstantValueNode", "minus"}, {"ConstantValue", "1.0"}});
    auto cp = make<DifferentialFilter>({{"Gain", "2"}, {"ConstantValueNode", "plus"}, {"ConstantValue", "1.0"}});
    std::vector<float> p(9), m(9);
    for (int i = 0; i < 9; ++i) {
        p[i] = 0.1f * i;
        m[i] = 0.3f - 0.05f * i;
    }
    for (size_t n : {1u, 3u, 4u, 9u}) {
        BufferList both = {p.data(), m.data()};
        BufferList plusOnly = {p.data(), nullptr};
        BufferList minusOnly = {nullptr, m.data()};
        d->process(both, n);
        c->process(plusOnly, n);
        cp->process(minusOnly, n);
        for (size_t i = 0; i < n; ++i) {
            EXPECT_NEAR((p[i] - m[i]) * 2, d->getOutput(0)[i], 1e-6);
            EXPECT_NEAR((p[i] - 1) * 2, c->getOutput(0)[i], 1e-6);
            EXPECT_NEAR((1 - m[i]) * 2, cp->getOutput(0)[i], 1e-6);
        }
    }
    EXPECT_EQ("Missing value for constant value node minus",
              messageOf([] { make<DifferentialFilter>({{"Gain", "2"}, {"ConstantValueNode", "minus"}}); }));
    EXPECT_EQ("Invalid input port name: x. Expected \"plus\" or \"minus\".",
              messageOf([&] { d->getMeta()->inputIndex("x"); }));
}

TEST(DspBasicElements, MetaPortNamesAreWholeStrings) {
    auto meta = BasicFilterMeta::instance();
    EXPECT_EQ(0, meta->inputIndex("in"));
    EXPECT_EQ("Invalid input port name: in . Expected \"in\".", messageOf([&] { meta->inputIndex("in "); }));
    EXPECT_EQ("Invalid output port name: output. Expected \"out\".", messageOf([&] { meta->outputIndex("output"); }));
    // A filter without a handler refuses a scalar property it does not know.
    auto g = make<Switch>({{"NumberOfInputs", "2"}});
    EXPECT_EQ("Switch: Unknown property X", messageOf([&] { g->propertyChanged("X", 1.0f); }));
}
