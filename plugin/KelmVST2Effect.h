#pragma once
#include <atomic>
#include <memory>

#include "plugin/core/KelmEffect.h"
#include "plugin/vst2/AudioEffectX.h"

namespace kelm {

// The preamp as a VST 2 effect: 2 inputs, 2 outputs, one program, one
// parameter per control, no chunks. A thin shell over KelmEffect.
class KelmVST2Effect : public vst2::AudioEffectX {
public:
    KelmVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<KelmEffect> core);
    ~KelmVST2Effect() override;

    void suspend() override;
    void resume() override;
    void setSampleRate(float rate) override;
    void setBlockSize(vst2::VstInt32 size) override;
    void processReplacing(float** inputs, float** outputs, vst2::VstInt32 sampleFrames) override;
    void connectInput(vst2::VstInt32 index, bool connected) override;
    bool setSpeakerArrangement(void* input, void* output) override;
    void setParameter(vst2::VstInt32 index, float value) override;
    float getParameter(vst2::VstInt32 index) override;
    void getParameterName(vst2::VstInt32 index, char* text) override;
    void getParameterDisplay(vst2::VstInt32 index, char* text) override;
    void getParameterLabel(vst2::VstInt32 index, char* label) override;
    bool getParameterProperties(vst2::VstInt32 index, vst2::VstParameterProperties* properties) override;
    void getProgramName(char* name) override;
    bool getEffectName(char* name) override;
    bool getVendorString(char* text) override;
    bool getProductString(char* text) override;
    vst2::VstInt32 getVendorVersion() override { return 1080; }
    vst2::VstInt32 canDo(char* text) override;

    KelmEffect& getCore() { return *core; }

    static const vst2::VstInt32 kUniqueId = 0x71387966;  // "q8yf"

private:
    // Whether the host feeds input 2: asked at resume and when the host changes the pins,
    // never from the audio thread.
    void askForSecondInput() { secondInput.store(isInputConnected(1)); }

    std::unique_ptr<KelmEffect> core;
    std::atomic<bool> secondInput{true};
};

} // namespace kelm
