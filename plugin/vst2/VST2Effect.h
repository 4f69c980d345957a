#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "plugin/core/EffectCore.h"
#include "plugin/vst2/AudioEffectX.h"
#include "plugin/vst2/VST2Editor.h"

namespace kelm {
namespace vst2 {

// Any effect core as a VST 2 effect: 2 inputs, 2 outputs, one program, one parameter per
// core parameter with its name, text and steps; with chunks, the core's state as the one
// chunk. Tells the host when the parameters' names change (at resume, after a chunk, on the
// window's idle). Every Kelm VST 2 plug-in is this shell with its identity and its window.
class VST2Effect : public AudioEffectX {
public:
    // What a host keeps a plug-in by.
    struct Identity {
        VstInt32 uniqueId;
        const char* name;      // the effect's name, e.g. "Kelm Preamp"
        VstInt32 version;
        bool chunks;           // the state as a chunk (else the host keeps the parameters)
    };

    // The plug-in's window over the host's side of it and the core; none when empty.
    typedef std::function<std::unique_ptr<PluginEditor>(EditorHost&, EffectCore&)> Window;

    VST2Effect(AudioMasterCallback audioMaster, std::unique_ptr<EffectCore> core, const Identity& identity,
               const Window& window);
    ~VST2Effect() override;

    void suspend() override;
    void resume() override;
    void setSampleRate(float rate) override;
    void setBlockSize(VstInt32 size) override;
    void processReplacing(float** inputs, float** outputs, VstInt32 sampleFrames) override;
    void connectInput(VstInt32 index, bool connected) override;
    bool setSpeakerArrangement(void* input, void* output) override;
    void setParameter(VstInt32 index, float value) override;
    float getParameter(VstInt32 index) override;
    void getParameterName(VstInt32 index, char* text) override;
    void getParameterDisplay(VstInt32 index, char* text) override;
    void getParameterLabel(VstInt32 index, char* label) override;
    bool getParameterProperties(VstInt32 index, VstParameterProperties* properties) override;
    VstInt32 getChunk(void** data, bool isPreset) override;
    VstInt32 setChunk(void* data, VstInt32 byteSize, bool isPreset) override;
    void getProgramName(char* name) override;
    bool getEffectName(char* name) override;
    bool getVendorString(char* text) override;
    bool getProductString(char* text) override;
    VstInt32 getVendorVersion() override { return identity.version; }
    VstInt32 canDo(char* text) override;

    EffectCore& getEffectCore() { return *core; }
    // Asks the host to read the parameter names again when they changed since the last call
    // (never on the audio thread).
    void tellHostOfNewNames();

protected:
    // The program's name the host shows.
    virtual std::string programName() { return "Default"; }

private:
    class Editor;
    // Whether the host feeds input 2: asked at resume and when the host changes the pins,
    // never from the audio thread.
    void askForSecondInput() { secondInput.store(isInputConnected(1)); }

    std::unique_ptr<EffectCore> core;
    Identity identity;
    std::atomic<bool> secondInput{true};
    std::string chunk;  // the last state handed to the host
    uint32_t namesTold = 0;
};

} // namespace vst2
} // namespace kelm
