// The CLAP entry point, clap_entry, and the plug-in factory: the list of the plug-ins in
// Kelm.clap, each an effect core with its window. A plug-in is added here and nowhere else.
#include <cstring>
#include <mutex>

#include "plugin/clap/ClapPlugin.h"
#include "plugin/core/CircuitEffect.h"
#include "plugin/core/KelmEffect.h"
#include "plugin/editor/CircuitEditor.h"
#include "plugin/editor/KelmEditor.h"

using namespace kelm;
using namespace kelm::clap;

#ifdef _WIN32
#define KELM_CLAP_EXPORT  // plugin/clap/exports.def
#else
#define KELM_CLAP_EXPORT __attribute__((visibility("default")))
#endif

namespace {

const char* const kPreampFeatures[] = {"audio-effect", "distortion", "stereo", nullptr};

std::unique_ptr<EffectCore> makePreamp() { return std::unique_ptr<EffectCore>(new KelmEffect()); }

std::unique_ptr<PluginEditor> makePreampEditor(EditorHost& host, EffectCore& core) {
    return std::unique_ptr<PluginEditor>(new KelmEditor(host, static_cast<KelmEffect&>(core).getDriver().getControls()));
}

const char* const kCircuitFeatures[] = {"audio-effect", "stereo", nullptr};

std::unique_ptr<EffectCore> makeCircuit() { return std::unique_ptr<EffectCore>(new CircuitEffect()); }

std::unique_ptr<PluginEditor> makeCircuitEditor(EditorHost& host, EffectCore& core) {
    return std::unique_ptr<PluginEditor>(new CircuitEditor(host, static_cast<CircuitEffect&>(core)));
}

// Hosts keep a plug-in in their sessions by its id: an id never changes.
const ClapPlugin::Kind kPlugins[] = {
    {{kVersion, "kelm.preamp", "Kelm Preamp", "Tallowbridge Labs", "", "", "", "1.0.80",
      "A stereo 12AX7 tube preamp with a Baxandall tone stack, simulated as circuits.", kPreampFeatures},
     makePreamp, makePreampEditor},
    {{kVersion, "kelm.circuit", "Kelm Circuit", "Tallowbridge Labs", "", "", "", "1.0.80",
      "Any circuit, as a system description or a SPICE netlist loaded at run time, as a stereo effect.",
      kCircuitFeatures},
     makeCircuit, makeCircuitEditor},
};
constexpr uint32_t kCount = sizeof kPlugins / sizeof kPlugins[0];

// init and deinit may come more than once; only the first and the last count.
std::mutex entryLock;
int entryUsers = 0;

bool KELM_CLAP_ABI entryInit(const char*) {
    std::lock_guard<std::mutex> g(entryLock);
    ++entryUsers;
    return true;
}

void KELM_CLAP_ABI entryDeinit() {
    std::lock_guard<std::mutex> g(entryLock);
    if (entryUsers > 0) --entryUsers;
}

uint32_t KELM_CLAP_ABI pluginCount(const clap_plugin_factory*) { return kCount; }

const clap_plugin_descriptor* KELM_CLAP_ABI pluginDescriptor(const clap_plugin_factory*, uint32_t index) {
    return index < kCount ? &kPlugins[index].descriptor : nullptr;
}

const clap_plugin* KELM_CLAP_ABI createPlugin(const clap_plugin_factory*, const clap_host* host, const char* id) {
    if (!host || !id || host->version.major < 1) return nullptr;
    for (const ClapPlugin::Kind& kind : kPlugins) {
        if (std::strcmp(kind.descriptor.id, id) != 0) continue;
        try {
            return (new ClapPlugin(kind, host))->clapPlugin();
        } catch (...) {
            return nullptr;  // nothing may pass into the host
        }
    }
    return nullptr;
}

const clap_plugin_factory kFactory = {pluginCount, pluginDescriptor, createPlugin};

const void* KELM_CLAP_ABI getFactory(const char* id) {
    return id && std::strcmp(id, kPluginFactoryId) == 0 ? &kFactory : nullptr;
}

} // namespace

extern "C" {
KELM_CLAP_EXPORT extern const clap_plugin_entry clap_entry;
const clap_plugin_entry clap_entry = {kVersion, entryInit, entryDeinit, getFactory};
}
