#include "plugin/vst2/circuit/CircuitVST2Effect.h"

#include "plugin/editor/CircuitEditor.h"

namespace kelm {

CircuitVST2Effect::CircuitVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<CircuitEffect> core)
    : VST2Effect(audioMaster, std::move(core), {kUniqueId, "Kelm Circuit", 1000, true},
                 [](EditorHost& host, EffectCore& effect) {
                     return std::unique_ptr<PluginEditor>(new CircuitEditor(host, static_cast<CircuitEffect&>(effect)));
                 }) {}

} // namespace kelm
