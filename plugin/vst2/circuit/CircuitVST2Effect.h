#pragma once
#include <memory>
#include <string>

#include "plugin/core/CircuitEffect.h"
#include "plugin/vst2/VST2Effect.h"

namespace kelm {

// Kelm Circuit as a VST 2 effect ("Kelm Circuit", id "kcir"): 20 parameters (16 slots named
// after the document's controls, Input level, Output level, Oversampling, Mix), the document
// and the parameters as one chunk, the program named after the document, its window.
class CircuitVST2Effect : public vst2::VST2Effect {
public:
    CircuitVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<CircuitEffect> core);

    CircuitEffect& getCore() { return static_cast<CircuitEffect&>(getEffectCore()); }

    static const vst2::VstInt32 kUniqueId = 0x6b636972;  // "kcir"

protected:
    std::string programName() override { return getCore().status().name; }
};

} // namespace kelm
