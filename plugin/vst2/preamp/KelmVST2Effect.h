#pragma once
#include <memory>

#include "plugin/core/KelmEffect.h"
#include "plugin/vst2/VST2Effect.h"

namespace kelm {

// The preamp as a VST 2 effect ("Kelm Preamp", id "q8yf"): one parameter per control, no
// chunks, the preamp's window.
class KelmVST2Effect : public vst2::VST2Effect {
public:
    KelmVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<KelmEffect> core);

    KelmEffect& getCore() { return static_cast<KelmEffect&>(getEffectCore()); }

    static const vst2::VstInt32 kUniqueId = 0x71387966;  // "q8yf"
};

} // namespace kelm
