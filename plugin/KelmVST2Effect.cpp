#include "plugin/KelmVST2Effect.h"

#include <cstring>

#include "plugin/editor/KelmEditor.h"
#include "plugin/vst2/VST2Editor.h"

namespace kelm {

using namespace vst2;

KelmVST2Effect::KelmVST2Effect(AudioMasterCallback audioMaster, std::unique_ptr<KelmEffect> c)
    : AudioEffectX(audioMaster, 1, c->numberOfParameters()), core(std::move(c)) {
    setUniqueID(kUniqueId);
    setNumInputs(2);
    setNumOutputs(2);
    canProcessReplacing(true);
    programsAreChunks(false);
    cEffect.version = 1080;
    const std::vector<ControlPtr> controls = core->getDriver().getControls();
    setEditor(new VST2Editor(this, [controls](EditorHost& host) {
        return std::unique_ptr<PluginEditor>(new KelmEditor(host, controls));
    }));
}

KelmVST2Effect::~KelmVST2Effect() {}

void KelmVST2Effect::suspend() { core->suspend(); }

void KelmVST2Effect::resume() {
    askForSecondInput();
    core->resume();
}

void KelmVST2Effect::connectInput(VstInt32 index, bool connected) {
    if (index == 1) secondInput.store(connected);
}

bool KelmVST2Effect::setSpeakerArrangement(void*, void*) {
    askForSecondInput();
    return false;  // 2 in, 2 out, whatever the host proposes
}

void KelmVST2Effect::setSampleRate(float rate) {
    AudioEffectX::setSampleRate(rate);
    core->setSampleRate(rate);
}

void KelmVST2Effect::setBlockSize(VstInt32 size) {
    AudioEffectX::setBlockSize(size);
    core->setBlockSize(size);
}

void KelmVST2Effect::processReplacing(float** inputs, float** outputs, VstInt32 frames) {
    const bool second = inputs[1] && inputs[1] != inputs[0] && secondInput.load();
    core->process(inputs, outputs, frames, second);
}

void KelmVST2Effect::setParameter(VstInt32 index, float value) {
    if (index < 0 || index >= core->numberOfParameters()) return;
    core->setParameter(index, value);
    // The window shows the value as the effect keeps it (clamped, switches on their positions).
    if (editor) editor->setParameter(index, core->getParameter(index));
}

float KelmVST2Effect::getParameter(VstInt32 index) { return core->getParameter(index); }

void KelmVST2Effect::getParameterName(VstInt32 index, char* text) {
    copyString(text, core->parameterName(index).c_str(), kVstMaxParamStrLen);
}

void KelmVST2Effect::getParameterDisplay(VstInt32 index, char* text) {
    copyString(text, core->parameterDisplay(index).c_str(), kVstMaxParamStrLen);
}

void KelmVST2Effect::getParameterLabel(VstInt32 index, char* label) {
    copyString(label, core->parameterLabel(index).c_str(), kVstMaxParamStrLen);
}

bool KelmVST2Effect::getParameterProperties(VstInt32 index, VstParameterProperties* p) {
    if (index < 0 || index >= core->numberOfParameters()) return false;
    std::memset(p, 0, sizeof *p);
    copyString(p->label, core->parameterName(index).c_str(), sizeof p->label - 1);
    copyString(p->shortLabel, core->parameterName(index).c_str(), sizeof p->shortLabel - 1);
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

void KelmVST2Effect::getProgramName(char* name) { copyString(name, "Default", kVstMaxProgNameLen); }

bool KelmVST2Effect::getEffectName(char* name) {
    copyString(name, "Kelm Preamp", kVstMaxEffectNameLen);
    return true;
}

bool KelmVST2Effect::getVendorString(char* text) {
    copyString(text, "Tallowbridge Labs", kVstMaxVendorStrLen);
    return true;
}

bool KelmVST2Effect::getProductString(char* text) {
    copyString(text, "Kelm", kVstMaxProductStrLen);
    return true;
}

VstInt32 KelmVST2Effect::canDo(char* text) {
    static const char* yes[] = {"plugAsChannelInsert", "plugAsSend", "1in1out", "1in2out", "2in2out"};
    for (const char* s : yes)
        if (std::strcmp(text, s) == 0) return 1;
    static const char* no[] = {"receiveVstEvents", "receiveVstMidiEvent", "sendVstEvents", "sendVstMidiEvent", "offline"};
    for (const char* s : no)
        if (std::strcmp(text, s) == 0) return -1;
    return 0;
}

} // namespace kelm
