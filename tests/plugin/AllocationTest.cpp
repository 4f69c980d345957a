// Real-time discipline: once set up, processing a block allocates nothing.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "circuit/Circuit.h"
#include "dsp/Convolver.h"
#include "dsp/DSPContext.h"
#include "plugin/vst2/preamp/KelmVST2Effect.h"
#include "plugin/clap/ClapPlugin.h"
#include "plugin/core/KelmEffect.h"
#include "solvers/NewtonSolver.h"
#include "tests/TestUtil.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

namespace {
std::atomic<bool> counting{false};
std::atomic<long> allocations{0};
// Where other threads allocate as they should (a loader beside the audio thread), only the
// threads marked count.
std::atomic<bool> onlyMarkedThreads{false};
thread_local bool markedThread = false;
} // namespace

// Counts every allocation of the test binary while `counting` is set.
void* operator new(std::size_t size) {
    if (counting.load(std::memory_order_relaxed) && (!onlyMarkedThreads.load(std::memory_order_relaxed) || markedThread))
        allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
// The replaced operator new above takes its memory from malloc, so free is its match; GCC,
// seeing a delete inlined beside a new, takes the new for the built-in one.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

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

// The preamp's core with its settings made, started at 48 kHz in blocks of `block` frames
// with a sine on both inputs, its first block run (that one may still settle things).
struct StartedCore {
    KelmEffect effect;
    std::vector<float> x, ol, orr;
    float* in[2] = {nullptr, nullptr};
    float* out[2] = {nullptr, nullptr};
    StartedCore(const std::vector<std::pair<const char*, float>>& settings, int block)
        : x(block), ol(block), orr(block) {
        for (const auto& s : settings) effect.setParameter(effect.parameterIndex(s.first), s.second);
        effect.setSampleRate(48000);
        effect.setBlockSize(block);
        effect.resume();
        for (int i = 0; i < block; ++i) x[i] = 0.3f * std::sin(0.03f * i);
        in[0] = in[1] = x.data();
        out[0] = ol.data();
        out[1] = orr.data();
        process();
    }
    void process() { effect.process(in, out, static_cast<int>(x.size())); }
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
            StartedCore s({{"CPU", cpu}, {"Oversampling", oversampling}}, 256);
            KelmEffect& effect = s.effect;
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
                s.process();
            }
            EXPECT_EQ(0, c.count()) << "CPU " << cpu << " oversampling " << oversampling;
        }
    }
}

TEST(PluginAllocation, ClapBlocksWithEventsAndTheWindowsEditsAllocateNothing) {
    using namespace kelm::clap;
    const ClapPlugin::Kind kind = {{kVersion, "test", "test", "", "", "", "", "", "", nullptr},
                                   [] { return std::unique_ptr<EffectCore>(new KelmEffect()); }, nullptr};
    clap_host host = {kVersion, nullptr, "test", "", "", "1", nullptr, nullptr, nullptr, nullptr};
    ClapPlugin* adapter = new ClapPlugin(kind, &host);
    const clap_plugin* p = adapter->clapPlugin();
    ASSERT_TRUE(p->init(p));
    ASSERT_TRUE(p->activate(p, 48000, 1, 256));
    ASSERT_TRUE(p->start_processing(p));
    // Three parameter events in every block, the oversampling switch among them.
    std::vector<clap_event_param_value> events(3);
    const clap_id ids[3] = {1, 5, 3};
    for (int k = 0; k < 3; ++k) {
        clap_event_param_value& e = events[k];
        std::memset(&e, 0, sizeof e);
        e.header = {sizeof e, static_cast<uint32_t>(10 + 90 * k), kCoreEventSpace, kEventParamValue, 0};
        e.param_id = ids[k];
        e.note_id = -1;
        e.port_index = e.channel = e.key = -1;
    }
    clap_input_events in = {&events, [](const clap_input_events*) { return 3u; },
                            [](const clap_input_events* l, uint32_t i) -> const clap_event_header* {
                                return &(*static_cast<std::vector<clap_event_param_value>*>(l->ctx))[i].header;
                            }};
    clap_output_events out = {nullptr, [](const clap_output_events*, const clap_event_header*) { return true; }};
    std::vector<float> l(256), r(256), ol(256), orr(256);
    for (int i = 0; i < 256; ++i) l[i] = r[i] = 0.3f * std::sin(0.07f * i);
    float* inputs[2] = {l.data(), r.data()};
    float* outputs[2] = {ol.data(), orr.data()};
    clap_audio_buffer input = {inputs, nullptr, 2, 0, 0}, output = {outputs, nullptr, 2, 0, 0};
    clap_process process = {0, 256, nullptr, &input, &output, 1, 1, &in, &out};
    ASSERT_EQ(kProcessContinue, p->process(p, &process));
    Counting c;
    for (int b = 0; b < 30; ++b) {
        for (int k = 0; k < 3; ++k) events[k].value = k == 2 ? (b / 10) % 3 : 0.03 * (b % 30);
        if (b % 5 == 0) {
            counting = false;  // the window's side runs on the main thread
            adapter->beginEdit(4);
            adapter->performEdit(4, 0.02f * b);
            adapter->endEdit(4);
            counting = true;
        }
        ASSERT_EQ(kProcessContinue, p->process(p, &process));
    }
    EXPECT_EQ(0, c.count());
    p->stop_processing(p);
    p->deactivate(p);
    p->destroy(p);
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

TEST(PluginAllocation, CircuitsOnTheirPortsAllocateNothingWithKnobsTurning) {
    // The 12AX7 stage stepped into grid current and the limiter on the way; four triodes and
    // a tone stack with each knob turned on every block, each turn eliminating the circuit's
    // linear part again on the audio thread.
    struct Case {
        const char* file;
        float amplitude, step;
        bool knobs;
    };
    for (const Case& k : {Case{"triode-stage.xml", 4.0f, 2.0f, false}, Case{"high-gain-preamp.xml", 0.5f, 0.0f, true}}) {
        auto d = makeDriver(readText(sourcePath(std::string("examples/") + k.file)), 192000, 256);
        int circuits = 0;
        for (const GraphPtr& g : d->getGraphs())
            if (auto* circuit = dynamic_cast<Circuit*>(g.get())) {
                ++circuits;
                EXPECT_STREQ("port form", circuit->kernel().name()) << k.file;
            }
        EXPECT_GT(circuits, 0) << k.file;
        EXPECT_EQ(k.knobs, !d->getControls().empty()) << k.file;
        std::vector<float> x(256);
        for (int i = 0; i < 256; ++i) x[i] = k.amplitude * std::sin(0.03f * i) + (i > 100 ? k.step : 0.0f);
        const BufferList in = {x.data()};
        d->process(in, 256);
        Counting c;
        for (int b = 0; b < 20; ++b) {
            for (const ControlPtr& control : d->getControls()) control->setValue(0.05f * b);
            d->process(in, 256);
        }
        EXPECT_EQ(0, c.count()) << k.file;
    }
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
    // An LV2 host's control ports reach the effect inside run, on the audio thread. Every
    // parameter, switches included: the oversampling factor changes the graphs' rates and
    // the resamplers' designs, which resume has prepared for every position.
    // Resumed once on each path, once with the right channel's graphs bypassed (Mono).
    for (float cpu : {0.0f, 1.0f, 2.0f}) {
        StartedCore s({{"CPU", std::min(cpu, 1.0f)}, {"Stereo", cpu > 1.0f ? 1.0f : 0.0f}}, 128);
        KelmEffect& effect = s.effect;
        unsigned seed = 12345;
        auto next = [&seed] {
            seed = seed * 1103515245u + 12345u;
            return static_cast<float>((seed >> 8) % 1001) / 1000.0f;
        };
        Counting c;
        for (int b = 0; b < 60; ++b) {
            for (int p = 0; p < effect.numberOfParameters(); ++p)
                if (b % 3 == 0 || effect.parameterPositions(p) == 0) effect.setParameter(p, next());
            s.process();
        }
        EXPECT_EQ(0, c.count()) << "case " << cpu;
    }
}

TEST(PluginAllocation, SwitchesFlippedWhilePlayingAllocateNothing) {
    // Each switch back and forth while a signal plays, with the knobs gliding meanwhile: the
    // spares run, take over and are set anew, the crossfades and the glides' steps run, all in
    // what the set-up sized. The circuit path at 4x, where the buffers are largest.
    for (const char* name : {"CPU", "EQ_Position", "Oversampling", "Stereo"}) {
        StartedCore s({{"CPU", 0.0f}, {"Oversampling", 1.0f}}, 256);
        KelmEffect& effect = s.effect;
        const int flipped = effect.parameterIndex(name), gain = effect.parameterIndex("Gain");
        int changes = 0;
        Counting c;
        for (int b = 0; b < 48; ++b) {
            if (b % 8 == 0) effect.setParameter(flipped, 1.0f - effect.getParameter(flipped));
            effect.setParameter(gain, 0.02f * b);
            s.process();
            changes += effect.getDriver().isChanging();
        }
        EXPECT_EQ(0, c.count()) << name;
        EXPECT_GT(changes, 6) << name << ": blocks in which a change was under way";
    }
}

// Kelm Circuit's audio thread allocates nothing while documents are switched under it (a
// load, a new oversampling factor, a state) and its slots move.
TEST(PluginAllocation, KelmCircuitSwitchesDocumentsWithoutAllocating) {
    const int block = 256;
    const auto in = kelm::test::circuit::testSignal(block, 48000);
    const std::string bax = readText(sourcePath("examples/baxandall.xml"));
    const std::string clipper = readText(sourcePath("examples/diode-clipper.xml"));
    const std::string tonestack = readText(sourcePath("tests/data/netlist/tonestack.cir"));
    CircuitEffect e;
    kelm::test::circuit::startWith(e, bax, 48000, block);
    std::vector<float> ol(block), orr(block);
    float* i[2] = {const_cast<float*>(in[0].data()), const_cast<float*>(in[1].data())};
    float* o[2] = {ol.data(), orr.data()};
    e.process(i, o, block);
    std::atomic<bool> stop{false};
    std::atomic<int> done{0};
    long counted = -1;
    std::thread audio([&] {
        markedThread = true;
        allocations = 0;
        onlyMarkedThreads = true;
        counting = true;
        ::operator delete(::operator new(16));  // the one this thread is seen to make
        for (int b = 0; !stop.load(); ++b) {
            e.setParameter(b % 3, 0.1f * (b % 9));  // the slots, as an LV2 host's ports do
            e.process(i, o, block);
            done.fetch_add(1);
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        counted = allocations.load();
        counting = false;
        onlyMarkedThreads = false;
    });
    auto settle = [&] {
        const int at = done.load();
        while (done.load() < at + 30) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    e.loadText(clipper, "clipper.xml");
    e.waitForLoads(10);
    settle();
    e.setParameter(CircuitEffect::kOversampling, 1.0f / 3.0f);
    e.waitForLoads(10);
    settle();
    e.loadText(tonestack, "tonestack.cir");
    e.waitForLoads(10);
    settle();
    const std::string state = e.getState();
    e.setState(state.data(), state.size());
    settle();
    stop = true;
    audio.join();
    EXPECT_EQ("tonestack.cir", e.status().name);
    EXPECT_EQ(1, counted);
}
