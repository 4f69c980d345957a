// The entry points a VST 2 host looks up: VSTPluginMain, and main as a second name of it.
#include <memory>

#include "plugin/KelmVST2Effect.h"

using namespace kelm;
using namespace kelm::vst2;

#define KELM_EXPORT extern "C" __attribute__((visibility("default")))

KELM_EXPORT AEffect* VSTPluginMain(AudioMasterCallback audioMaster) {
    // A host that does not answer its version gets no effect.
    if (!audioMaster || audioMaster(nullptr, audioMasterVersion, 0, 0, nullptr, 0) == 0) return nullptr;
    std::unique_ptr<KelmEffect> core(new KelmEffect());
    KelmVST2Effect* effect = new KelmVST2Effect(audioMaster, std::move(core));
    return effect->getAeffect();
}

// Exported under the symbol name "main". When the file is started as a program the
// argument is no callback (it is argc), and nothing is created.
KELM_EXPORT AEffect* kelmVstMain(AudioMasterCallback audioMaster) __asm__("main");
KELM_EXPORT AEffect* kelmVstMain(AudioMasterCallback audioMaster) {
    if (reinterpret_cast<uintptr_t>(audioMaster) < 0xff) return nullptr;
    return VSTPluginMain(audioMaster);
}
