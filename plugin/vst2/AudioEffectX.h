#pragma once
#include "plugin/vst2/AudioEffect.h"

namespace kelm {
namespace vst2 {

// The 2.x extensions: plug-in category, VST version, "can do" queries, pin
// properties and the host queries that effects use.
class AudioEffectX : public AudioEffect {
public:
    using AudioEffect::AudioEffect;
    VstIntPtr dispatcher(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) override;

    virtual VstInt32 getPlugCategory() { return kPlugCategEffect; }
    virtual VstInt32 getVstVersion() { return kVstVersion; }
    virtual bool canParameterBeAutomated(VstInt32 index) { return index >= 0 && index < numParams; }
    virtual bool getInputProperties(VstInt32 index, VstPinProperties* properties);
    virtual bool getOutputProperties(VstInt32 index, VstPinProperties* properties);
    virtual VstInt32 getTailSize() { return 0; }
    // Fills the properties of parameter `index`; false when there is nothing to say.
    virtual bool getParameterProperties(VstInt32, VstParameterProperties*) { return false; }

    // The host tells of a pin it connects or disconnects (effConnectInput, a VST 2.0 call that
    // some hosts still make) or proposes speaker arrangements (effSetSpeakerArrangement; the
    // answer false keeps the effect's own). Both are made outside the audio thread.
    virtual void connectInput(VstInt32, bool) {}
    virtual bool setSpeakerArrangement(void*, void*) { return false; }

    // Whether the host connects input (or output) pin `index`: the host's answer is inverted, 0 meaning yes.
    bool isInputConnected(VstInt32 index);
    bool isOutputConnected(VstInt32 index);
    // Asks the host to re-read names and displays.
    bool updateDisplay();
    VstInt32 getHostVersion();
};

} // namespace vst2
} // namespace kelm
