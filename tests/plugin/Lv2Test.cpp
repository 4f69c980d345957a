// The LV2 plug-in: loaded in-process with dlopen as a host does (all builds), and through
// Debian's LV2 tools (lv2_validate, lv2info, lv2apply) against the kelm tool.
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>

#include "plugin/core/KelmEffect.h"
#include "tests/TestUtil.h"
#include "tests/plugin/CoreRender.h"
#include "tests/plugin/Lv2Urids.h"

using namespace kelm;
using namespace kelm::test;

namespace {

const std::string kBundle = KELM_LV2_BUNDLE;
const char* kUri = "urn:kelm:preamp";

const LV2_Descriptor* descriptor() {
    static const LV2_Descriptor* d = [] {
        void* handle = dlopen((kBundle + "/kelm.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) return static_cast<const LV2_Descriptor*>(nullptr);
        auto entry = reinterpret_cast<LV2_Descriptor_Function>(dlsym(handle, "lv2_descriptor"));
        return entry ? entry(0) : nullptr;
    }();
    return d;
}

// A minimal URID map and an options list stating the host's block bound.
struct HostFeatures {
    Lv2Urids urids;
    int32_t maxBlock;
    LV2_Options_Option options[2];
    LV2_Feature optionsFeature{LV2_OPTIONS__options, options};
    const LV2_Feature* list[3] = {&urids.mapFeature, &optionsFeature, nullptr};
    explicit HostFeatures(int32_t block) : maxBlock(block) {
        options[0] = {LV2_OPTIONS_INSTANCE, 0, urids.id(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t),
                      urids.id("http://lv2plug.in/ns/ext/atom#Int"), &maxBlock};
        options[1] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
    }
};

struct Instance {
    const LV2_Descriptor* d = descriptor();
    LV2_Handle h = nullptr;
    float controls[9];
    Instance(double rate, const LV2_Feature* const* features) {
        h = d->instantiate(d, rate, kBundle.c_str(), features);
        KelmEffect defaults;
        for (int i = 0; i < 9; ++i) {
            controls[i] = defaults.getParameter(i);
            d->connect_port(h, 4 + i, &controls[i]);
        }
    }
    ~Instance() {
        if (h) d->cleanup(h);
    }
    void connect(const float* inL, const float* inR, float* outL, float* outR) {
        d->connect_port(h, 0, const_cast<float*>(inL));
        d->connect_port(h, 1, const_cast<float*>(inR));
        d->connect_port(h, 2, outL);
        d->connect_port(h, 3, outR);
    }
};

} // namespace

TEST(PluginLv2Host, RunsAsTheCoreDoesWithAnyBlockSplitInPlaceAndMono) {
    ASSERT_NE(nullptr, descriptor()) << dlerror();
    EXPECT_STREQ(kUri, descriptor()->URI);
    EXPECT_EQ(nullptr, descriptor()->extension_data("http://lv2plug.in/ns/ext/state#interface"));
    const size_t frames = 6000;
    const std::vector<float> l = noise(frames, 5), r = noise(frames, 6);
    const std::vector<std::pair<int, float>> values = {{1, 0.8f}, {3, 0.5f}, {4, 0.2f}, {8, 0.0f}};
    for (bool mono : {false, true}) {
        // The host announces 64 frames; runs of 0, 1, 64 and 700 (more than announced).
        HostFeatures features(64);
        Instance p(48000, features.list);
        ASSERT_NE(nullptr, p.h);
        for (auto& v : values) p.controls[v.first] = v.second;
        // The control values stand in their ports at activation, as hosts set them.
        std::vector<float> bufL(l), bufR(r), outR(frames);
        p.d->activate(p.h);
        const uint32_t runs[] = {0, 1, 64, 700, 3, 64};
        size_t at = 0;
        for (int k = 0; at < frames; ++k) {
            const uint32_t n = std::min<uint32_t>(runs[k % 6], frames - at);
            // connect_port may come at any time: the host moves its buffers every run.
            p.connect(bufL.data() + at, mono ? bufL.data() + at : bufR.data() + at, bufL.data() + at, outR.data() + at);
            p.d->run(p.h, n);
            at += n;
        }
        p.d->deactivate(p.h);
        const auto ref = renderCore(l, mono ? l : r, values, 64);
        EXPECT_EQ(ref[0], bufL) << "mono " << mono;
        EXPECT_EQ(ref[1], outR) << "mono " << mono;
        // A mono input feeds both channels: the two outputs agree (Stereo is 0).
        EXPECT_TRUE(!mono || bufL == outR);
    }
}

TEST(PluginLv2Host, ControlChangesReachTheEffectAndBadValuesAreSafe) {
    Instance p(44100, nullptr);  // no features: the default announced block size
    ASSERT_NE(nullptr, p.h);
    const size_t frames = 2048;
    std::vector<float> in = noise(frames, 9), out[2] = {std::vector<float>(frames), std::vector<float>(frames)};
    p.connect(in.data(), nullptr, out[0].data(), out[1].data());  // the right input left unconnected
    p.d->activate(p.h);
    p.d->run(p.h, frames);
    float first = 0;
    for (float v : out[0]) first = std::max(first, std::fabs(v));
    EXPECT_GT(first, 1e-4f);
    for (size_t i = 0; i < frames; ++i) ASSERT_EQ(out[0][i], out[1][i]);
    // Vol at 0 silences the output from the next block; NaN and out-of-range values neither crash nor pass.
    p.controls[2] = 0.0f;
    p.controls[0] = std::nanf("");
    p.controls[3] = 7.0f;
    p.d->run(p.h, frames);
    // The tone stack after the volume lets its stored charge decay within a few milliseconds.
    float tail = 0;
    for (size_t i = frames / 2; i < frames; ++i) tail = std::max(tail, std::fabs(out[0][i]));
    EXPECT_LT(tail, 1e-4f * first);
    for (float v : out[1]) ASSERT_TRUE(std::isfinite(v));
    p.d->deactivate(p.h);
    // Activation again after deactivation runs as before.
    p.controls[2] = 0.5f;
    p.d->activate(p.h);
    p.d->run(p.h, frames);
    for (float v : out[0]) ASSERT_TRUE(std::isfinite(v));
    p.d->deactivate(p.h);
    EXPECT_EQ(nullptr, p.d->instantiate(p.d, 0.0, kBundle.c_str(), nullptr));
}
