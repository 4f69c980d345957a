#include "plugin/vst2/preamp/KelmVST2Effect.h"

#include "plugin/editor/KelmEditor.h"

namespace kelm {

KelmVST2Effect::KelmVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<KelmEffect> core)
    : VST2Effect(audioMaster, std::move(core), {kUniqueId, "Kelm Preamp", 1080, false},
                 [](EditorHost& host, EffectCore& effect) {
                     return std::unique_ptr<PluginEditor>(
                         new KelmEditor(host, static_cast<KelmEffect&>(effect).getDriver().getControls()));
                 }) {}

} // namespace kelm
