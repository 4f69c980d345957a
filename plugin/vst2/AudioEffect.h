#pragma once
#include <cstring>

#include "plugin/vst2/aeffect.h"

namespace kelm {
namespace vst2 {

class AEffEditor;

// Base of a VST 2 effect: owns the AEffect record that the host sees, and maps
// the host's dispatcher opcodes onto virtual operations with the answers hosts
// rely on. Operations not overridden keep neutral answers (0, empty text).
class AudioEffect {
public:
    AudioEffect(AudioMasterCallback audioMaster, VstInt32 numPrograms, VstInt32 numParams);
    virtual ~AudioEffect();

    AEffect* getAeffect() { return &cEffect; }
    static AudioEffect* fromAeffect(AEffect* e) { return e ? static_cast<AudioEffect*>(e->object) : nullptr; }

    // Dispatcher: every opcode arrives here first.
    virtual VstIntPtr dispatcher(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt);

    virtual void open() {}
    virtual void close() {}
    virtual void suspend() {}
    virtual void resume() {}
    virtual void setSampleRate(float rate) { sampleRate = rate; }
    virtual void setBlockSize(VstInt32 size) { blockSize = size; }
    virtual void processReplacing(float** inputs, float** outputs, VstInt32 sampleFrames) = 0;
    virtual void setParameter(VstInt32, float) {}
    virtual float getParameter(VstInt32) { return 0; }
    virtual void setParameterAutomated(VstInt32 index, float value);
    virtual void getParameterLabel(VstInt32, char* label) { label[0] = 0; }
    virtual void getParameterDisplay(VstInt32, char* text) { text[0] = 0; }
    virtual void getParameterName(VstInt32, char* text) { text[0] = 0; }
    virtual void setProgram(VstInt32 program) { curProgram = program; }
    virtual VstInt32 getProgram() { return curProgram; }
    virtual void setProgramName(char*) {}
    virtual void getProgramName(char* name) { name[0] = 0; }
    // The program (isPreset) or bank as one block of bytes, for effects whose programs are
    // chunks: *data points at memory the effect keeps until the next call; returns its size.
    virtual VstInt32 getChunk(void** data, bool isPreset) {
        (void)isPreset;
        *data = nullptr;
        return 0;
    }
    // Bytes the host kept from getChunk (or a preset file); returns 1 when they were taken.
    virtual VstInt32 setChunk(void* data, VstInt32 byteSize, bool isPreset) {
        (void)data;
        (void)byteSize;
        (void)isPreset;
        return 0;
    }
    virtual bool getEffectName(char*) { return false; }
    virtual bool getVendorString(char*) { return false; }
    virtual bool getProductString(char*) { return false; }
    virtual VstInt32 getVendorVersion() { return 0; }
    virtual VstInt32 canDo(char*) { return 0; }

    // Set-up helpers for subclasses.
    void setUniqueID(VstInt32 id) { cEffect.uniqueID = id; }
    void setNumInputs(VstInt32 n) { cEffect.numInputs = n; }
    void setNumOutputs(VstInt32 n) { cEffect.numOutputs = n; }
    void programsAreChunks(bool state = true);
    void canProcessReplacing(bool state = true);
    void setEditor(AEffEditor* e);
    AEffEditor* getEditor() const { return editor; }
    float getSampleRate() const { return sampleRate; }
    VstInt32 getBlockSize() const { return blockSize; }
    AudioMasterCallback getAudioMaster() const { return audioMaster; }
    // Asks the host; 0 when it has no callback.
    VstIntPtr callHost(VstInt32 opcode, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr, float opt = 0);

    // Copies at most maxChars characters and a terminating NUL.
    static void copyString(char* dst, const char* src, size_t maxChars);

protected:
    float sampleRate = 44100.0f;
    VstInt32 blockSize = 1024;
    VstInt32 numPrograms;
    VstInt32 numParams;
    VstInt32 curProgram = 0;
    AudioMasterCallback audioMaster;
    AEffEditor* editor = nullptr;
    AEffect cEffect;
};

} // namespace vst2
} // namespace kelm
