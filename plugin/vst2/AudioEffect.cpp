#include "plugin/vst2/AudioEffect.h"

#include <cstring>

#include "plugin/vst2/AEffEditor.h"

namespace kelm {
namespace vst2 {

namespace {
// Runs one host call. On Windows the host has a C++ runtime of its own and an
// exception that leaves the DLL ends it: there every exception stops here and the call
// answers `failed`. Elsewhere exceptions pass to the host as they are.
template <typename R, typename F>
R guarded(R failed, F call) {
#ifdef _WIN32
    try {
        return call();
    } catch (...) {
        return failed;
    }
#else
    (void)failed;
    return call();
#endif
}

VstIntPtr KELM_VSTCALLBACK dispatchProc(AEffect* e, VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr,
                                        float opt) {
    AudioEffect* effect = AudioEffect::fromAeffect(e);
    return effect ? guarded<VstIntPtr>(0, [&] { return effect->dispatcher(opcode, index, value, ptr, opt); }) : 0;
}

// The accumulating process of VST 1 hosts; a 2.4 effect only replaces.
void KELM_VSTCALLBACK accumulateProc(AEffect*, float**, float**, VstInt32) {}

void KELM_VSTCALLBACK processReplacingProc(AEffect* e, float** inputs, float** outputs, VstInt32 frames) {
    AudioEffect* effect = AudioEffect::fromAeffect(e);
    if (!effect) return;
    const bool done = guarded(false, [&] {
        effect->processReplacing(inputs, outputs, frames);
        return true;
    });
    if (!done && outputs && frames > 0)  // a block that failed is silence
        for (VstInt32 c = 0; c < e->numOutputs; ++c)
            if (outputs[c]) std::memset(outputs[c], 0, sizeof(float) * static_cast<size_t>(frames));
}

void KELM_VSTCALLBACK setParameterProc(AEffect* e, VstInt32 index, float value) {
    if (AudioEffect* effect = AudioEffect::fromAeffect(e)) guarded(false, [&] {
            effect->setParameter(index, value);
            return true;
        });
}

float KELM_VSTCALLBACK getParameterProc(AEffect* e, VstInt32 index) {
    AudioEffect* effect = AudioEffect::fromAeffect(e);
    return effect ? guarded(0.0f, [&] { return effect->getParameter(index); }) : 0.0f;
}
} // namespace

AudioEffect::AudioEffect(AudioMasterCallback master, VstInt32 programs, VstInt32 params)
    : numPrograms(programs), numParams(params), audioMaster(master) {
    std::memset(&cEffect, 0, sizeof cEffect);
    cEffect.magic = kEffectMagic;
    cEffect.dispatcher = dispatchProc;
    cEffect.process = accumulateProc;
    cEffect.setParameter = setParameterProc;
    cEffect.getParameter = getParameterProc;
    cEffect.numPrograms = programs;
    cEffect.numParams = params;
    cEffect.numInputs = 1;
    cEffect.numOutputs = 2;
    cEffect.ioRatio = 1.0f;
    cEffect.object = this;
    cEffect.uniqueID = KELM_FOURCC('N', 'o', 'E', 'f');
    cEffect.version = 1;
    cEffect.processReplacing = processReplacingProc;
}

AudioEffect::~AudioEffect() { delete editor; }

void AudioEffect::programsAreChunks(bool state) {
    if (state)
        cEffect.flags |= effFlagsProgramChunks;
    else
        cEffect.flags &= ~effFlagsProgramChunks;
}

void AudioEffect::canProcessReplacing(bool state) {
    if (state)
        cEffect.flags |= effFlagsCanReplacing;
    else
        cEffect.flags &= ~effFlagsCanReplacing;
}

void AudioEffect::setEditor(AEffEditor* e) {
    delete editor;
    editor = e;
    if (editor)
        cEffect.flags |= effFlagsHasEditor;
    else
        cEffect.flags &= ~effFlagsHasEditor;
}

VstIntPtr AudioEffect::callHost(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
    return audioMaster ? audioMaster(&cEffect, opcode, index, value, ptr, opt) : 0;
}

void AudioEffect::setParameterAutomated(VstInt32 index, float value) {
    setParameter(index, value);
    callHost(audioMasterAutomate, index, 0, nullptr, value);
}

void AudioEffect::copyString(char* dst, const char* src, size_t maxChars) {
    if (!dst) return;
    size_t n = 0;
    while (src && src[n] && n < maxChars) {
        dst[n] = src[n];
        ++n;
    }
    dst[n] = 0;
}

VstIntPtr AudioEffect::dispatcher(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
    char text[256] = {0};
    switch (opcode) {
    case effOpen:
        open();
        return 0;
    case effClose:
        close();
        delete this;
        return 1;
    case effSetProgram:
        if (value >= 0 && value < numPrograms) setProgram(static_cast<VstInt32>(value));
        return 0;
    case effGetProgram:
        return getProgram();
    case effSetProgramName:
        if (ptr) setProgramName(static_cast<char*>(ptr));
        return 0;
    case effGetProgramName:
        getProgramName(text);
        copyString(static_cast<char*>(ptr), text, kVstMaxProgNameLen);
        return 0;
    case effGetParamLabel:
        getParameterLabel(index, text);
        copyString(static_cast<char*>(ptr), text, kVstMaxParamStrLen);
        return 0;
    case effGetParamDisplay:
        getParameterDisplay(index, text);
        copyString(static_cast<char*>(ptr), text, kVstMaxParamStrLen);
        return 0;
    case effGetParamName:
        getParameterName(index, text);
        copyString(static_cast<char*>(ptr), text, kVstMaxParamStrLen);
        return 0;
    case effSetSampleRate:
        setSampleRate(opt);
        return 0;
    case effSetBlockSize:
        setBlockSize(static_cast<VstInt32>(value));
        return 0;
    case effMainsChanged:
        if (value)
            resume();
        else
            suspend();
        return 0;
    case effEditGetRect:
        return editor && ptr ? editor->getRect(static_cast<ERect**>(ptr)) : 0;
    case effEditOpen:
        // A window that cannot be made is refused; no exception reaches the host.
        try {
            return editor ? editor->open(ptr) : 0;
        } catch (...) {
            return 0;
        }
    case effEditClose:
        if (editor) editor->close();
        return 0;
    case effEditIdle:
        if (editor) editor->idle();
        return 0;
    case effGetChunk:
        if (!ptr) return 0;
        return getChunk(static_cast<void**>(ptr), index != 0);
    case effSetChunk:
        if (value < 0) return 0;
        return setChunk(ptr, static_cast<VstInt32>(value), index != 0);
    default:
        return 0;
    }
}

} // namespace vst2
} // namespace kelm
