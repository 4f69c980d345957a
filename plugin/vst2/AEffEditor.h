#pragma once
#include "plugin/vst2/aeffect.h"

namespace kelm {
namespace vst2 {

class AudioEffect;

// Base of a plug-in window: its size and the host's open/close/idle calls.
class AEffEditor {
public:
    explicit AEffEditor(AudioEffect* effect) : effect(effect) {}
    virtual ~AEffEditor() {}
    virtual bool getRect(ERect** rect) {
        *rect = &area;
        return true;
    }
    virtual bool open(void* parent) {
        systemWindow = parent;
        return true;
    }
    virtual void close() { systemWindow = nullptr; }
    virtual void idle() {}
    virtual void setParameter(VstInt32, float) {}

protected:
    AudioEffect* effect;
    void* systemWindow = nullptr;
    ERect area = {0, 0, 0, 0};
};

} // namespace vst2
} // namespace kelm
