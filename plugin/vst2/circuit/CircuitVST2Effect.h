#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "plugin/core/CircuitEffect.h"
#include "plugin/vst2/AudioEffectX.h"

namespace kelm {

// Kelm Circuit as a VST 2 effect: 2 inputs, 2 outputs, 20 parameters (16 slots named after
// the document's controls, Input level, Output level, Oversampling, Mix), its state as one
// chunk. A thin shell over CircuitEffect; it tells the host when the slots' names change.
class CircuitVST2Effect : public vst2::AudioEffectX {
public:
    CircuitVST2Effect(vst2::AudioMasterCallback audioMaster, std::unique_ptr<CircuitEffect> core);
    ~CircuitVST2Effect() override;

    void suspend() override;
    void resume() override;
    void setSampleRate(float rate) override;
    void setBlockSize(vst2::VstInt32 size) override;
    void processReplacing(float** inputs, float** outputs, vst2::VstInt32 sampleFrames) override;
    void setParameter(vst2::VstInt32 index, float value) override;
    float getParameter(vst2::VstInt32 index) override;
    void getParameterName(vst2::VstInt32 index, char* text) override;
    void getParameterDisplay(vst2::VstInt32 index, char* text) override;
    void getParameterLabel(vst2::VstInt32 index, char* label) override;
    bool getParameterProperties(vst2::VstInt32 index, vst2::VstParameterProperties* properties) override;
    vst2::VstInt32 getChunk(void** data, bool isPreset) override;
    vst2::VstInt32 setChunk(void* data, vst2::VstInt32 byteSize, bool isPreset) override;
    void getProgramName(char* name) override;
    bool getEffectName(char* name) override;
    bool getVendorString(char* text) override;
    bool getProductString(char* text) override;
    vst2::VstInt32 getVendorVersion() override { return 1000; }
    vst2::VstInt32 canDo(char* text) override;

    CircuitEffect& getCore() { return *core; }
    // Asks the host to read the parameter names again when they changed since the last call
    // (not on the audio thread: the window's idle, a state set, a resume).
    void tellHostOfNewNames();

    static const vst2::VstInt32 kUniqueId = 0x6b636972;  // "kcir"

private:
    class Editor;
    std::unique_ptr<CircuitEffect> core;
    std::string chunk;  // the last state handed to the host
    uint32_t namesTold = 0;
};

} // namespace kelm
