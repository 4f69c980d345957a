#include "plugin/vst2/circuit/CircuitVST2Effect.h"

#include <cstring>

#include "plugin/editor/CircuitEditor.h"
#include "plugin/vst2/VST2Editor.h"

namespace kelm {

using namespace vst2;

// The window, which also tells the host of new names after a load it started: the host's
// idle calls are the one regular turn on its GUI thread.
class CircuitVST2Effect::Editor : public VST2Editor {
public:
    explicit Editor(CircuitVST2Effect& e)
        : VST2Editor(&e, [&e](EditorHost& host) { return std::unique_ptr<PluginEditor>(new CircuitEditor(host, *e.core)); }),
          owner(e) {}
    void idle() override {
        VST2Editor::idle();
        owner.tellHostOfNewNames();
    }

private:
    CircuitVST2Effect& owner;
};

CircuitVST2Effect::CircuitVST2Effect(AudioMasterCallback audioMaster, std::unique_ptr<CircuitEffect> c)
    : AudioEffectX(audioMaster, 1, CircuitEffect::kNumberOfParameters), core(std::move(c)) {
    setUniqueID(kUniqueId);
    setNumInputs(2);
    setNumOutputs(2);
    canProcessReplacing(true);
    programsAreChunks(true);
    cEffect.version = 1000;
    namesTold = core->namesSerial();
    setEditor(new Editor(*this));
}


CircuitVST2Effect::~CircuitVST2Effect() {}

void CircuitVST2Effect::suspend() { core->suspend(); }

void CircuitVST2Effect::resume() {
    core->resume();
    tellHostOfNewNames();
}

void CircuitVST2Effect::setSampleRate(float rate) {
    AudioEffectX::setSampleRate(rate);
    core->setSampleRate(rate);
}

void CircuitVST2Effect::setBlockSize(VstInt32 size) {
    AudioEffectX::setBlockSize(size);
    core->setBlockSize(size);
}

void CircuitVST2Effect::processReplacing(float** inputs, float** outputs, VstInt32 frames) {
    const bool second = inputs[1] && inputs[1] != inputs[0] && isInputConnected(1);
    core->process(inputs, outputs, frames, second);
}

void CircuitVST2Effect::setParameter(VstInt32 index, float value) {
    core->setParameter(index, value);
    if (editor) editor->setParameter(index, core->getParameter(index));
}

float CircuitVST2Effect::getParameter(VstInt32 index) { return core->getParameter(index); }

void CircuitVST2Effect::getParameterName(VstInt32 index, char* text) {
    copyString(text, core->parameterName(index).c_str(), kVstMaxParamStrLen);
}

void CircuitVST2Effect::getParameterDisplay(VstInt32 index, char* text) {
    copyString(text, core->parameterDisplay(index).c_str(), kVstMaxParamStrLen);
}

void CircuitVST2Effect::getParameterLabel(VstInt32 index, char* label) {
    copyString(label, core->parameterLabel(index).c_str(), kVstMaxParamStrLen);
}

bool CircuitVST2Effect::getParameterProperties(VstInt32 index, VstParameterProperties* p) {
    if (index < 0 || index >= core->numberOfParameters()) return false;
    std::memset(p, 0, sizeof *p);
    const std::string name = core->parameterName(index);
    copyString(p->label, name.c_str(), sizeof p->label - 1);
    copyString(p->shortLabel, name.c_str(), sizeof p->shortLabel - 1);
    p->displayIndex = static_cast<int16_t>(index);
    p->flags = kVstParameterSupportsDisplayIndex;
    const int positions = core->parameterPositions(index);
    if (positions > 2) {
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

VstInt32 CircuitVST2Effect::getChunk(void** data, bool) {
    chunk = core->getState();
    *data = &chunk[0];
    return static_cast<VstInt32>(chunk.size());
}

VstInt32 CircuitVST2Effect::setChunk(void* data, VstInt32 byteSize, bool) {
    const bool taken = core->setState(data, static_cast<size_t>(byteSize));
    tellHostOfNewNames();
    return taken ? 1 : 0;
}

void CircuitVST2Effect::tellHostOfNewNames() {
    const uint32_t serial = core->namesSerial();
    if (serial == namesTold) return;
    namesTold = serial;
    updateDisplay();
}

void CircuitVST2Effect::getProgramName(char* name) {
    copyString(name, core->status().name.c_str(), kVstMaxProgNameLen);
}

bool CircuitVST2Effect::getEffectName(char* name) {
    copyString(name, "Kelm Circuit", kVstMaxEffectNameLen);
    return true;
}

bool CircuitVST2Effect::getVendorString(char* text) {
    copyString(text, "Tallowbridge Labs", kVstMaxVendorStrLen);
    return true;
}

bool CircuitVST2Effect::getProductString(char* text) {
    copyString(text, "Kelm", kVstMaxProductStrLen);
    return true;
}

VstInt32 CircuitVST2Effect::canDo(char* text) {
    static const char* yes[] = {"plugAsChannelInsert", "plugAsSend", "1in1out", "1in2out", "2in2out"};
    for (const char* s : yes)
        if (std::strcmp(text, s) == 0) return 1;
    static const char* no[] = {"receiveVstEvents", "receiveVstMidiEvent", "sendVstEvents", "sendVstMidiEvent", "offline"};
    for (const char* s : no)
        if (std::strcmp(text, s) == 0) return -1;
    return 0;
}

} // namespace kelm
