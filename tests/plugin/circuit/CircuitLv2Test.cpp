// Kelm Circuit in the LV2 bundle: the description validates, and its state (the document
// and every parameter) goes through lilv's save and restore into a new instance, as a host's
// session does, giving the same samples.
#include <cstdlib>
#include <cstring>
#include <map>

#include <lv2/atom/atom.h>
#include <lv2/state/state.h>

#include "plugin/core/CircuitState.h"
#include "tests/plugin/Lv2Urids.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"

#ifdef KELM_HAVE_LILV
#include <lilv/lilv.h>
#endif

using namespace kelm;
using namespace kelm::test;
using namespace kelm::test::circuit;

namespace {

const std::string kBundle = KELM_LV2_BUNDLE;

} // namespace

// (lv2_validate over the bundle's three files: Lv2Tools.BundleValidatesAndExportsOnlyItsEntryPoint.)
TEST(KelmCircuitLv2, TheBundleDescribesBothPlugins) {
    const std::string manifest = readText(kBundle + "/manifest.ttl");
    EXPECT_NE(std::string::npos, manifest.find("<urn:kelm:circuit>"));
    EXPECT_NE(std::string::npos, manifest.find("<urn:kelm:preamp>"));
    KELM_SKIP_IN_SANITIZED_BUILD();
    const std::string dir = kBundle.substr(0, kBundle.rfind('/'));
    const CommandResult info = run("LV2_PATH=" + dir + ":/usr/lib/lv2 lv2info urn:kelm:circuit");
    ASSERT_EQ(0, info.status) << info.output;
    for (const char* text : {"Kelm Circuit", "slot1", "slot16", "input_level", "output_level", "oversampling", "mix",
                             "8x", "http://lv2plug.in/ns/ext/state#interface"})
        EXPECT_NE(std::string::npos, info.output.find(text)) << text << "\n" << info.output;
}

#ifdef KELM_HAVE_LILV

namespace {

// One instance with its ports: 4 audio, 20 controls by symbol.
struct Host {
    LilvWorld* world = lilv_world_new();
    Lv2Urids urids;
    const LilvPlugin* plugin = nullptr;
    Host() {
        const std::string dir = kBundle.substr(0, kBundle.rfind('/'));
        setenv("LV2_PATH", (dir + ":/usr/lib/lv2").c_str(), 1);
        lilv_world_load_all(world);
        LilvNode* uri = lilv_new_uri(world, "urn:kelm:circuit");
        plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
        lilv_node_free(uri);
    }
    ~Host() { lilv_world_free(world); }
};

struct Instance {
    Host& host;
    LilvInstance* instance;
    std::vector<float> controls;
    std::map<std::string, int> bySymbol;
    Instance(Host& h, double rate) : host(h), instance(lilv_plugin_instantiate(h.plugin, rate, h.urids.features)) {
        const uint32_t ports = lilv_plugin_get_num_ports(h.plugin);
        controls.assign(ports, 0.0f);
        std::vector<float> defaults(ports);
        lilv_plugin_get_port_ranges_float(h.plugin, nullptr, nullptr, defaults.data());
        for (uint32_t p = 4; p < ports; ++p) {
            controls[p] = defaults[p];
            lilv_instance_connect_port(instance, p, &controls[p]);
            bySymbol[lilv_node_as_string(lilv_port_get_symbol(h.plugin, lilv_plugin_get_port_by_index(h.plugin, p)))] =
                static_cast<int>(p);
        }
    }
    ~Instance() {
        if (instance) lilv_instance_free(instance);
    }
    // The plug-in's state extension called as a host calls it to hand over a document.
    void giveState(const std::string& state) {
        auto* iface = static_cast<const LV2_State_Interface*>(lilv_instance_get_extension_data(instance, LV2_STATE__interface));
        ASSERT_NE(nullptr, iface);
        struct Source {
            const std::string& text;
            LV2_URID key, type;
        } source{state, host.urids.id("urn:kelm:circuit#state"),
                 host.urids.id(LV2_ATOM__String)};
        auto retrieve = [](LV2_State_Handle h, uint32_t key, size_t* size, uint32_t* type, uint32_t* flags) -> const void* {
            const Source& s = *static_cast<const Source*>(h);
            if (key != s.key) return nullptr;
            *size = s.text.size() + 1;
            *type = s.type;
            *flags = LV2_STATE_IS_POD;
            return s.text.c_str();
        };
        EXPECT_EQ(LV2_STATE_SUCCESS, iface->restore(lilv_instance_get_handle(instance), retrieve, &source, 0, nullptr));
    }
    std::vector<std::vector<float>> render(const std::vector<std::vector<float>>& in, int block) {
        const size_t frames = in[0].size();
        std::vector<std::vector<float>> out(2, std::vector<float>(frames));
        for (size_t offset = 0; offset < frames; offset += block) {
            const uint32_t n = static_cast<uint32_t>(std::min<size_t>(block, frames - offset));
            lilv_instance_connect_port(instance, 0, const_cast<float*>(in[0].data()) + offset);
            lilv_instance_connect_port(instance, 1, const_cast<float*>(in[1].data()) + offset);
            lilv_instance_connect_port(instance, 2, out[0].data() + offset);
            lilv_instance_connect_port(instance, 3, out[1].data() + offset);
            lilv_instance_run(instance, n);
        }
        return out;
    }
};

const void* portValue(const char* symbol, void* user, uint32_t* size, uint32_t* type) {
    Instance& i = *static_cast<Instance*>(user);
    auto it = i.bySymbol.find(symbol);
    if (it == i.bySymbol.end()) return nullptr;
    *size = sizeof(float);
    *type = i.host.urids.id(LV2_ATOM__Float);
    return &i.controls[it->second];
}

void setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t) {
    Instance& i = *static_cast<Instance*>(user);
    auto it = i.bySymbol.find(symbol);
    if (it != i.bySymbol.end() && size == sizeof(float)) i.controls[it->second] = *static_cast<const float*>(value);
}

} // namespace

// Save through lilv (to a string, as a session file holds it), restore into a new
// instance: the same document, values and samples, without the file.
TEST(KelmCircuitLv2, StateRoundTripThroughLilvGivesTheSameSamples) {
    KELM_SKIP_IN_SANITIZED_BUILD();
    Host host;
    ASSERT_NE(nullptr, host.plugin);
    const auto in = testSignal(24000, 48000);
    Instance a(host, 48000);
    ASSERT_NE(nullptr, a.instance);
    a.giveState(readText(sourcePath("tests/data/netlist/tonestack.cir")));  // a plain netlist as a preset
    a.controls[a.bySymbol["input_level"]] = 0.55f;
    lilv_instance_activate(a.instance);
    a.render(testSignal(512, 48000), 512);
    a.controls[a.bySymbol["slot1"]] = 0.8f;  // a knob moved: Treble
    a.render(testSignal(512, 48000), 512);

    LilvState* saved = lilv_state_new_from_instance(host.plugin, a.instance, &host.urids.map, nullptr, nullptr, nullptr,
                                                     nullptr, portValue, &a, 0, nullptr);
    ASSERT_NE(nullptr, saved);
    char* text = lilv_state_to_string(host.world, &host.urids.map, &host.urids.unmap, saved, "urn:kelm:test-state", nullptr);
    ASSERT_NE(nullptr, text);
    const std::string session = text;
    EXPECT_NE(std::string::npos, session.find("Fender Bassman")) << "the netlist's text is in the state";
    lilv_free(text);
    lilv_state_free(saved);
    lilv_instance_deactivate(a.instance);

    LilvState* loaded = lilv_state_new_from_string(host.world, &host.urids.map, session.c_str());
    ASSERT_NE(nullptr, loaded);
    Instance b(host, 48000);
    lilv_state_restore(loaded, b.instance, setPortValue, &b, 0, nullptr);
    lilv_state_free(loaded);
    EXPECT_FLOAT_EQ(0.8f, b.controls[b.bySymbol["slot1"]]);
    EXPECT_FLOAT_EQ(0.55f, b.controls[b.bySymbol["input_level"]]);

    lilv_instance_activate(a.instance);
    lilv_instance_activate(b.instance);
    const auto first = a.render(in, 256);
    const auto second = b.render(in, 256);
    EXPECT_EQ(first, second);
    EXPECT_GT(peak(first[0]), 0.0f);
    lilv_instance_deactivate(a.instance);
    lilv_instance_deactivate(b.instance);
}

#endif
