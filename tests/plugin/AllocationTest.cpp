// Real-time discipline: once set up, processing a block allocates nothing.
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>

#include "dsp/Convolver.h"
#include "engine/DSPContext.h"
#include "plugin/KelmVST2Effect.h"
#include "plugin/core/KelmEffect.h"
#include "tests/TestUtil.h"

namespace {
std::atomic<bool> counting{false};
std::atomic<long> allocations{0};
} // namespace

// Counts every allocation of the test binary while `counting` is set.
void* operator new(std::size_t size) {
    if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

using namespace kelm;
using namespace kelm::test;

namespace {
struct Counting {
    Counting() {
        allocations = 0;
        counting = true;
    }
    ~Counting() { counting = false; }
    long count() const { return allocations.load(); }
};
} // namespace

TEST(PluginAllocation, ProcessingAllocatesNothingOnceSetUp) {
    {
        Counting c;  // the counter itself sees an allocation
        std::unique_ptr<std::vector<int>> v(new std::vector<int>(10));
        EXPECT_EQ(2, c.count());
    }
    for (float cpu : {0.0f, 1.0f}) {
        for (float oversampling : {0.0f, 1.0f}) {
            KelmEffect effect;
            effect.setParameter(effect.parameterIndex("CPU"), cpu);
            effect.setParameter(effect.parameterIndex("Oversampling"), oversampling);
            effect.setSampleRate(48000);
            effect.setBlockSize(256);
            effect.resume();
            std::vector<float> l(256), r(256), ol(256), orr(256);
            for (int i = 0; i < 256; ++i) l[i] = r[i] = 0.3f * std::sin(0.07f * i);
            float* in[2] = {l.data(), r.data()};
            float* out[2] = {ol.data(), orr.data()};
            effect.process(in, out, 256);  // the first block after resume may still settle things
            // Knob moves between blocks are delivered on the audio thread too: still nothing allocated.
            const int gain = effect.parameterIndex("Gain"), bass = effect.parameterIndex("Bass");
            Counting c;
            for (int b = 0; b < 50; ++b) {
                if (b % 10 == 5) {
                    counting = false;  // the writer's side runs on another thread in a host
                    effect.setParameter(gain, 0.1f * (b % 7));
                    effect.setParameter(bass, 0.05f * (b % 11));
                    counting = true;
                }
                effect.process(in, out, 256);
            }
            EXPECT_EQ(0, c.count()) << "CPU " << cpu << " oversampling " << oversampling;
        }
    }
}

TEST(PluginAllocation, ConvolverProcessAllocatesNothing) {
    auto ctx = std::make_shared<DSPContext>();
    Convolver conv;
    conv.init("c", std::make_shared<PropertyMap>(PropertyMap{{"MaxIRSize", "3000"}}), ctx);
    conv.setMaxBlockSize(512);
    conv.propertyChanged("ImpulseResponse", std::make_shared<ScalarVector>(2500, 0.001f));
    std::vector<float> x(512, 0.5f);
    BufferList in = {x.data()};
    conv.process(in, 512);
    Counting c;
    for (int b = 0; b < 20; ++b) conv.process(in, 100 + b);
    EXPECT_EQ(0, c.count());
}

TEST(PluginAllocation, ProcessingAllocatesNothingWithTheEditorOpen) {
    kelm::KelmVST2Effect effect([](vst2::AEffect*, vst2::VstInt32 op, vst2::VstInt32, vst2::VstIntPtr, void*,
                                   float) -> vst2::VstIntPtr { return op == vst2::audioMasterVersion ? 2400 : 0; },
                                std::unique_ptr<KelmEffect>(new KelmEffect()));
    vst2::AEffect* e = effect.getAeffect();
    e->dispatcher(e, vst2::effSetSampleRate, 0, 0, nullptr, 48000);
    e->dispatcher(e, vst2::effSetBlockSize, 0, 256, nullptr, 0);
    e->dispatcher(e, vst2::effMainsChanged, 0, 1, nullptr, 0);
    ASSERT_EQ(1, e->dispatcher(e, vst2::effEditOpen, 0, 0, nullptr, 0));  // off-screen window
    std::vector<float> l(256, 0.1f), r(256, 0.1f), ol(256), orr(256);
    float* in[2] = {l.data(), r.data()};
    float* out[2] = {ol.data(), orr.data()};
    e->processReplacing(e, in, out, 256);
    Counting c;
    for (int b = 0; b < 30; ++b) {
        if (b % 10 == 5) {
            counting = false;  // the host's and the window's threads, elsewhere in a host
            e->setParameter(e, 1, 0.1f * (b % 7));
            e->dispatcher(e, vst2::effEditIdle, 0, 0, nullptr, 0);
            counting = true;
        }
        e->processReplacing(e, in, out, 256);
    }
    EXPECT_EQ(0, c.count());
    e->dispatcher(e, vst2::effEditClose, 0, 0, nullptr, 0);
}

TEST(PluginAllocation, ParameterChangesOnTheAudioThreadAllocateNothing) {
    // An LV2 host's control ports reach the effect inside run, on the audio thread. The knobs
    // only: a switch (Oversampling, EQ_Position, Stereo, CPU) makes the driver recompute the
    // graphs' rates and sizes in the next block, which allocates today.
    KelmEffect effect;
    effect.setSampleRate(48000);
    effect.setBlockSize(128);
    effect.resume();
    std::vector<float> l(128, 0.1f), ol(128), orr(128);
    float* in[2] = {l.data(), l.data()};
    float* out[2] = {ol.data(), orr.data()};
    effect.process(in, out, 128);
    Counting c;
    for (int b = 0; b < 40; ++b) {
        for (int p = 0; p < effect.numberOfParameters(); ++p)
            for (const char* knob : {"Input", "Gain", "Vol", "Bass", "Treble"})
                if (effect.parameterName(p) == knob) effect.setParameter(p, 0.1f * ((b + p) % 11));
        effect.process(in, out, 128);
    }
    EXPECT_EQ(0, c.count());
}
