#include "plugin/lv2/ui/KelmLV2UI.h"

#include <cstdint>

#include "plugin/editor/KelmEditor.h"
#include "plugin/lv2/LV2Effect.h"

namespace kelm {

KelmLV2UI::KelmLV2UI(const std::vector<ControlPtr>& controls, LV2UI_Write_Function write,
                     LV2UI_Controller controller, const LV2UI_Touch* touch)
    : write(write), controller(controller), touch(touch) {
    for (const ControlPtr& c : controls) values.push_back(c->getValue());
    editor.reset(new KelmEditor(*this, controls));
}

KelmLV2UI::~KelmLV2UI() { editor.reset(); }

void KelmLV2UI::open(void* parent) { editor->open(parent); }

LV2UI_Widget KelmLV2UI::widget() const {
    return editor->getFrame() ? editor->getFrame()->nativeHandle() : nullptr;
}

uint32_t KelmLV2UI::portOf(int index) const { return LV2Effect::kFirstControlPort + static_cast<uint32_t>(index); }

void KelmLV2UI::portEvent(uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    if (format != 0 || size != sizeof(float) || !buffer || port < LV2Effect::kFirstControlPort) return;
    const uint32_t index = port - LV2Effect::kFirstControlPort;
    if (index >= values.size()) return;
    const float v = *static_cast<const float*>(buffer);
    values[index] = v;
    editor->parameterChanged(static_cast<int>(index), v);
}

int KelmLV2UI::idle() {
    editor->idle();
    return editor->isOpen() ? 0 : 1;
}

float KelmLV2UI::parameterValue(int index) {
    return index >= 0 && static_cast<size_t>(index) < values.size() ? values[index] : 0.0f;
}

void KelmLV2UI::beginEdit(int index) {
    if (touch && touch->touch) touch->touch(touch->handle, portOf(index), true);
}

void KelmLV2UI::performEdit(int index, float value) {
    if (index < 0 || static_cast<size_t>(index) >= values.size()) return;
    values[index] = value;
    write(controller, portOf(index), sizeof(float), 0, &value);
}

void KelmLV2UI::endEdit(int index) {
    if (touch && touch->touch) touch->touch(touch->handle, portOf(index), false);
}

} // namespace kelm
