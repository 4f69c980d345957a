#include "plugin/lv2/ui/CircuitLV2UI.h"

#include "plugin/lv2/LV2Effect.h"

namespace kelm {

CircuitLV2UI::CircuitLV2UI(CircuitEffect& core, LV2UI_Write_Function write, LV2UI_Controller controller,
                           const LV2UI_Touch* touch)
    : core(core), write(write), controller(controller), touch(touch), editor(new CircuitEditor(*this, core)) {}

CircuitLV2UI::~CircuitLV2UI() { editor.reset(); }

void CircuitLV2UI::open(void* parent) { editor->open(parent); }

LV2UI_Widget CircuitLV2UI::widget() const {
    return editor->getFrame() ? editor->getFrame()->nativeHandle() : nullptr;
}

void CircuitLV2UI::portEvent(uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    if (format != 0 || size != sizeof(float) || !buffer || port < LV2Effect::kFirstControlPort) return;
    const uint32_t index = port - LV2Effect::kFirstControlPort;
    if (index >= static_cast<uint32_t>(CircuitEffect::kNumberOfParameters)) return;
    // The window shows it; the plug-in applies the port itself on its next block (a slot's
    // port only once it moves, see LV2Effect).
    editor->parameterChanged(static_cast<int>(index), *static_cast<const float*>(buffer));
}

int CircuitLV2UI::idle() {
    editor->idle();
    return editor->isOpen() ? 0 : 1;
}

float CircuitLV2UI::parameterValue(int index) { return isParameter(index) ? core.getParameter(index) : 0.0f; }

void CircuitLV2UI::beginEdit(int index) {
    if (isParameter(index) && touch && touch->touch)
        touch->touch(touch->handle, LV2Effect::kFirstControlPort + static_cast<uint32_t>(index), true);
}

void CircuitLV2UI::performEdit(int index, float value) {
    if (!isParameter(index)) return;
    // Setting a parameter is safe from any thread. It also makes a value equal to the port's
    // stale one count, which the plug-in, seeing no change of the port, would not apply.
    core.setParameter(index, value);
    write(controller, LV2Effect::kFirstControlPort + static_cast<uint32_t>(index), sizeof(float), 0, &value);
}

void CircuitLV2UI::endEdit(int index) {
    if (isParameter(index) && touch && touch->touch)
        touch->touch(touch->handle, LV2Effect::kFirstControlPort + static_cast<uint32_t>(index), false);
}

} // namespace kelm
