#include "plugin/vst2/AudioEffectX.h"

#include <cstring>

namespace kelm {
namespace vst2 {

bool AudioEffectX::getInputProperties(VstInt32 index, VstPinProperties* p) {
    if (index < 0 || index >= cEffect.numInputs) return false;
    std::memset(p, 0, sizeof *p);
    std::strcpy(p->label, index == 0 ? "Left In" : "Right In");
    std::strcpy(p->shortLabel, index == 0 ? "L in" : "R in");
    p->flags = kVstPinIsActive | (cEffect.numInputs == 2 ? kVstPinIsStereo : 0);
    p->arrangementType = cEffect.numInputs == 2 ? 1 : 0;
    return true;
}

bool AudioEffectX::getOutputProperties(VstInt32 index, VstPinProperties* p) {
    if (index < 0 || index >= cEffect.numOutputs) return false;
    std::memset(p, 0, sizeof *p);
    std::strcpy(p->label, index == 0 ? "Left Out" : "Right Out");
    std::strcpy(p->shortLabel, index == 0 ? "L out" : "R out");
    p->flags = kVstPinIsActive | (cEffect.numOutputs == 2 ? kVstPinIsStereo : 0);
    p->arrangementType = cEffect.numOutputs == 2 ? 1 : 0;
    return true;
}

bool AudioEffectX::isInputConnected(VstInt32 index) { return callHost(audioMasterPinConnected, index, 0) == 0; }

bool AudioEffectX::isOutputConnected(VstInt32 index) { return callHost(audioMasterPinConnected, index, 1) == 0; }

bool AudioEffectX::updateDisplay() { return callHost(audioMasterUpdateDisplay) != 0; }

VstInt32 AudioEffectX::getHostVersion() { return static_cast<VstInt32>(callHost(audioMasterVersion)); }

VstIntPtr AudioEffectX::dispatcher(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
    char text[256] = {0};
    switch (opcode) {
    case effCanBeAutomated:
        return canParameterBeAutomated(index) ? 1 : 0;
    case effGetInputProperties:
        return ptr && getInputProperties(index, static_cast<VstPinProperties*>(ptr)) ? 1 : 0;
    case effGetOutputProperties:
        return ptr && getOutputProperties(index, static_cast<VstPinProperties*>(ptr)) ? 1 : 0;
    case effGetParameterProperties:
        return ptr && getParameterProperties(index, static_cast<VstParameterProperties*>(ptr)) ? 1 : 0;
    case effGetPlugCategory:
        return getPlugCategory();
    case effGetEffectName:
        if (!getEffectName(text)) return 0;
        copyString(static_cast<char*>(ptr), text, kVstMaxEffectNameLen);
        return 1;
    case effGetVendorString:
        if (!getVendorString(text)) return 0;
        copyString(static_cast<char*>(ptr), text, kVstMaxVendorStrLen);
        return 1;
    case effGetProductString:
        if (!getProductString(text)) return 0;
        copyString(static_cast<char*>(ptr), text, kVstMaxProductStrLen);
        return 1;
    case effGetVendorVersion:
        return getVendorVersion();
    case effCanDo:
        return ptr ? canDo(static_cast<char*>(ptr)) : 0;
    case effGetTailSize:
        return getTailSize();
    case effGetVstVersion:
        return getVstVersion();
    case effSetProcessPrecision:
        return value == 0 ? 1 : 0;  // 32-bit floats only
    case effStartProcess:
    case effStopProcess:
        return 0;
    case effConnectInput:
        connectInput(index, value != 0);
        return 1;
    case effSetSpeakerArrangement:
        return setSpeakerArrangement(reinterpret_cast<void*>(value), ptr) ? 1 : 0;
    default:
        return AudioEffect::dispatcher(opcode, index, value, ptr, opt);
    }
}

} // namespace vst2
} // namespace kelm
