#include "plugin/vst2/VST2Effect.h"

#include <cstring>

namespace kelm {
namespace vst2 {

// The window, which also tells the host of new names after a document loaded from it: the
// host's idle calls are the one regular turn on its GUI thread.
class VST2Effect::Editor : public VST2Editor {
public:
    Editor(VST2Effect& effect, const Window& window)
        : VST2Editor(&effect, [&effect, window](EditorHost& host) { return window(host, *effect.core); }),
          owner(effect) {}
    void idle() override {
        VST2Editor::idle();
        owner.tellHostOfNewNames();
    }

private:
    VST2Effect& owner;
};

VST2Effect::VST2Effect(AudioMasterCallback audioMaster, std::unique_ptr<EffectCore> c, const Identity& id,
                       const Window& window)
    : AudioEffectX(audioMaster, 1, c->numberOfParameters()), core(std::move(c)), identity(id) {
    setUniqueID(identity.uniqueId);
    setNumInputs(2);
    setNumOutputs(2);
    canProcessReplacing(true);
    programsAreChunks(identity.chunks);
    cEffect.version = identity.version;
    namesTold = core->namesSerial();
    if (window) setEditor(new Editor(*this, window));
}

VST2Effect::~VST2Effect() {}

void VST2Effect::suspend() { core->suspend(); }

void VST2Effect::resume() {
    askForSecondInput();
    core->resume();
    tellHostOfNewNames();
}

void VST2Effect::connectInput(VstInt32 index, bool connected) {
    if (index == 1) secondInput.store(connected);
}

bool VST2Effect::setSpeakerArrangement(void*, void*) {
    askForSecondInput();
    return false;  // 2 in, 2 out, whatever the host proposes
}

void VST2Effect::setSampleRate(float rate) {
    AudioEffectX::setSampleRate(rate);
    core->setSampleRate(rate);
}

void VST2Effect::setBlockSize(VstInt32 size) {
    AudioEffectX::setBlockSize(size);
    core->setBlockSize(size);
}

void VST2Effect::processReplacing(float** inputs, float** outputs, VstInt32 frames) {
    const bool second = inputs[1] && inputs[1] != inputs[0] && secondInput.load();
    core->process(inputs, outputs, frames, second);
}

void VST2Effect::setParameter(VstInt32 index, float value) {
    if (index < 0 || index >= core->numberOfParameters()) return;
    core->setParameter(index, value);
    // The window shows the value as the effect keeps it (clamped, switches on their positions).
    if (editor) editor->setParameter(index, core->getParameter(index));
}

float VST2Effect::getParameter(VstInt32 index) { return core->getParameter(index); }

void VST2Effect::getParameterName(VstInt32 index, char* text) {
    copyString(text, core->parameterName(index).c_str(), kVstMaxParamStrLen);
}

void VST2Effect::getParameterDisplay(VstInt32 index, char* text) {
    copyString(text, core->parameterDisplay(index).c_str(), kVstMaxParamStrLen);
}

void VST2Effect::getParameterLabel(VstInt32 index, char* label) {
    copyString(label, core->parameterLabel(index).c_str(), kVstMaxParamStrLen);
}

bool VST2Effect::getParameterProperties(VstInt32 index, VstParameterProperties* p) {
    if (index < 0 || index >= core->numberOfParameters()) return false;
    std::memset(p, 0, sizeof *p);
    const std::string name = core->parameterName(index);
    copyString(p->label, name.c_str(), sizeof p->label - 1);
    copyString(p->shortLabel, name.c_str(), sizeof p->shortLabel - 1);
    p->displayIndex = static_cast<int16_t>(index);
    p->flags = kVstParameterSupportsDisplayIndex;
    const int positions = core->parameterPositions(index);
    if (positions == 2) {
        p->flags |= kVstParameterIsSwitch;
    } else if (positions > 2) {
        // A parameter of a few positions: integer steps for hosts that count, and the same steps
        // on the 0..1 scale for those that do not.
        p->flags |= kVstParameterUsesIntegerMinMax | kVstParameterUsesIntStep | kVstParameterUsesFloatStep;
        p->minInteger = 0;
        p->maxInteger = positions - 1;
        p->stepInteger = p->largeStepInteger = 1;
        p->stepFloat = p->smallStepFloat = p->largeStepFloat = 1.0f / (positions - 1);
    } else {
        p->flags |= kVstParameterUsesFloatStep | kVstParameterCanRamp;
        p->stepFloat = 0.01f;
        p->smallStepFloat = 0.001f;
        p->largeStepFloat = 0.1f;
    }
    return true;
}

VstInt32 VST2Effect::getChunk(void** data, bool) {
    if (!identity.chunks) return 0;
    chunk = core->getState();
    *data = &chunk[0];
    return static_cast<VstInt32>(chunk.size());
}

VstInt32 VST2Effect::setChunk(void* data, VstInt32 byteSize, bool) {
    if (!identity.chunks || !data || byteSize < 0) return 0;
    const bool taken = core->setState(data, static_cast<size_t>(byteSize));
    tellHostOfNewNames();
    return taken ? 1 : 0;
}

void VST2Effect::tellHostOfNewNames() {
    const uint32_t serial = core->namesSerial();
    if (serial == namesTold) return;
    namesTold = serial;
    updateDisplay();
}

void VST2Effect::getProgramName(char* name) { copyString(name, programName().c_str(), kVstMaxProgNameLen); }

bool VST2Effect::getEffectName(char* name) {
    copyString(name, identity.name, kVstMaxEffectNameLen);
    return true;
}

bool VST2Effect::getVendorString(char* text) {
    copyString(text, "Tallowbridge Labs", kVstMaxVendorStrLen);
    return true;
}

bool VST2Effect::getProductString(char* text) {
    copyString(text, "Kelm", kVstMaxProductStrLen);
    return true;
}

VstInt32 VST2Effect::canDo(char* text) {
    static const char* yes[] = {"plugAsChannelInsert", "plugAsSend", "1in1out", "1in2out", "2in2out"};
    for (const char* s : yes)
        if (std::strcmp(text, s) == 0) return 1;
    static const char* no[] = {"receiveVstEvents", "receiveVstMidiEvent", "sendVstEvents", "sendVstMidiEvent", "offline"};
    for (const char* s : no)
        if (std::strcmp(text, s) == 0) return -1;
    return 0;
}

} // namespace vst2
} // namespace kelm
