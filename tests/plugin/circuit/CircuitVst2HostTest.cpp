// KelmCircuit.so as a host sees it (loaded with dlopen, driven through the dispatcher): its
// identity, chunks that hold a document rendering as `kelm render --system` does, a chunk
// read back giving the same samples in a new instance, and the host told of new names.
#include "tests/plugin/Vst2Plugin.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

using namespace kelm;
using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::circuit;
using namespace kelm::test::vst2host;

namespace {

std::atomic<int> displayUpdates{0};

VstIntPtr KELM_VSTCALLBACK host(AEffect*, VstInt32 opcode, VstInt32, VstIntPtr, void*, float) {
    if (opcode == audioMasterVersion) return 2400;
    if (opcode == audioMasterUpdateDisplay) ++displayUpdates;
    return 0;
}

Entry entry() {
    static Entry e = [] {
        void* handle = dlopen(KELM_CIRCUIT_VST2_PATH, RTLD_NOW | RTLD_LOCAL);
        return handle ? reinterpret_cast<Entry>(dlsym(handle, "VSTPluginMain")) : nullptr;
    }();
    return e;
}

struct CircuitPlugin : Plugin {
    CircuitPlugin() : Plugin(host, entry()) {}
    std::vector<std::vector<float>> render(const std::vector<std::vector<float>>& in, int block) {
        const size_t frames = in[0].size();
        std::vector<std::vector<float>> out(2, std::vector<float>(frames));
        for (size_t offset = 0; offset < frames; offset += block) {
            const int n = static_cast<int>(std::min<size_t>(block, frames - offset));
            float* i[2] = {const_cast<float*>(in[0].data()) + offset, const_cast<float*>(in[1].data()) + offset};
            float* o[2] = {out[0].data() + offset, out[1].data() + offset};
            e->processReplacing(e, i, o, n);
        }
        return out;
    }
};

} // namespace

TEST(KelmCircuitVst2, IsItsOwnPluginWithTwentyParametersAndChunks) {
    ASSERT_NE(nullptr, entry()) << dlerror();
    CircuitPlugin p;
    ASSERT_NE(nullptr, p.e);
    EXPECT_EQ(kEffectMagic, p.e->magic);
    EXPECT_EQ(0x6b636972, p.e->uniqueID);  // 'kcir', not the preamp's 'q8yf'
    EXPECT_EQ(20, p.e->numParams);
    EXPECT_EQ(2, p.e->numInputs);
    EXPECT_EQ(2, p.e->numOutputs);
    EXPECT_TRUE(p.e->flags & effFlagsProgramChunks);
    EXPECT_TRUE(p.e->flags & effFlagsHasEditor);
    EXPECT_TRUE(p.e->flags & effFlagsCanReplacing);
    EXPECT_EQ("Kelm Circuit", p.text(effGetEffectName));
    EXPECT_EQ("Tallowbridge Labs", p.text(effGetVendorString));
    EXPECT_EQ("Input l", p.text(effGetParamName, 16).substr(0, 7));
    VstParameterProperties props;
    ASSERT_EQ(1, p.call(effGetParameterProperties, 18, 0, &props));
    EXPECT_STREQ("Oversampling", props.label);
    EXPECT_EQ(3, props.maxInteger);
    ASSERT_EQ(1, p.call(effGetParameterProperties, 17, 0, &props));
    EXPECT_STREQ("Output level", props.label);
}

// A chunk holding an example's XML text (or a netlist's), set as a host restores a session,
// renders what `kelm render --system` renders of the same file, left and right alike.
TEST(KelmCircuitVst2, AChunkWithADocumentRendersAsKelmRender) {
    const auto in = testSignal(48000, 48000);
    for (const char* file : {"examples/triode-stage.xml", "examples/fuzz-face.xml", "tests/data/netlist/tonestack.cir"}) {
        SCOPED_TRACE(file);
        const std::string text = readText(sourcePath(file));
        CircuitPlugin p;
        ASSERT_TRUE(p.restore(text, 48000, 512));
        const auto got = p.render(in, 512);
        const auto left = kelmRenderSystem(sourcePath(file), in[0], 512);
        const auto right = kelmRenderSystem(sourcePath(file), in[1], 512);
        EXPECT_LE(relativeDifference(got[0], left), 1e-6);
        EXPECT_LE(relativeDifference(got[1], right), 1e-6);
        EXPECT_GT(peak(left), 0.0f);
    }
}

// effGetChunk's bytes given to a new instance: the same document, parameters and samples;
// the host hears of the new parameter names.
TEST(KelmCircuitVst2, AChunkReadBackGivesTheSameSamplesInANewInstance) {
    const auto in = testSignal(24000, 44100);
    CircuitPlugin a;
    ASSERT_TRUE(a.restore(readText(sourcePath("examples/baxandall.xml")), 44100, 256));
    EXPECT_EQ("Bass", a.text(effGetParamName, 0));
    EXPECT_EQ("-", a.text(effGetParamName, 2));
    a.e->setParameter(a.e, 0, 0.85f);
    a.e->setParameter(a.e, 1, 0.2f);
    a.e->setParameter(a.e, 17, 0.45f);  // output level -4 dB
    const std::string chunk = a.chunk();
    a.call(effMainsChanged, 0, 0);
    a.call(effMainsChanged, 0, 1);
    const auto first = a.render(in, 256);

    CircuitPlugin b;
    displayUpdates = 0;
    ASSERT_TRUE(b.restore(chunk, 44100, 256));
    EXPECT_GE(displayUpdates.load(), 1);
    EXPECT_EQ("Bass", b.text(effGetParamName, 0));
    EXPECT_EQ("Treble", b.text(effGetParamName, 1));
    EXPECT_FLOAT_EQ(0.85f, b.e->getParameter(b.e, 0));
    EXPECT_FLOAT_EQ(0.45f, b.e->getParameter(b.e, 17));
    EXPECT_EQ(first, b.render(in, 256));
    EXPECT_EQ(chunk, b.chunk());

    // An empty or broken chunk is refused and changes nothing.
    EXPECT_EQ(0, b.call(effSetChunk, 0, 0, const_cast<char*>("")));
    const std::string broken = "<System><Graphs>";
    EXPECT_EQ(0, b.call(effSetChunk, 0, static_cast<VstIntPtr>(broken.size()), const_cast<char*>(broken.data())));
    EXPECT_EQ(chunk, b.chunk());
}
