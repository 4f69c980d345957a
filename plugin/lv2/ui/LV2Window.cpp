#include "plugin/lv2/ui/LV2Window.h"

#include "plugin/lv2/LV2Effect.h"

namespace kelm {

LV2Window::LV2Window(const std::vector<float>& values, EffectCore* core, const Editor& makeEditor,
                     LV2UI_Write_Function write, LV2UI_Controller controller, const LV2UI_Touch* touch)
    : values(values), core(core), write(write), controller(controller), touch(touch), editor(makeEditor(*this)) {}

LV2Window::~LV2Window() { editor.reset(); }

void LV2Window::open(void* parent) { editor->open(parent); }

LV2UI_Widget LV2Window::widget() const { return editor->getFrame() ? editor->getFrame()->nativeHandle() : nullptr; }

uint32_t LV2Window::portOf(int index) { return LV2Effect::kFirstControlPort + static_cast<uint32_t>(index); }

void LV2Window::portEvent(uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    if (format != 0 || size != sizeof(float) || !buffer || port < LV2Effect::kFirstControlPort) return;
    const uint32_t index = port - LV2Effect::kFirstControlPort;
    if (index >= values.size()) return;
    // The window shows it; the plug-in applies the port itself on its next block (some ports
    // only once they move, see LV2Effect).
    const float v = *static_cast<const float*>(buffer);
    values[index] = v;
    editor->parameterChanged(static_cast<int>(index), v);
}

int LV2Window::idle() {
    editor->idle();
    return editor->isOpen() ? 0 : 1;
}

float LV2Window::parameterValue(int index) {
    if (!isParameter(index)) return 0.0f;
    return core ? core->getParameter(index) : values[index];
}

void LV2Window::beginEdit(int index) {
    if (isParameter(index) && touch && touch->touch) touch->touch(touch->handle, portOf(index), true);
}

void LV2Window::performEdit(int index, float value) {
    if (!isParameter(index)) return;
    values[index] = value;
    // Setting a parameter is safe from any thread. It also makes a value equal to the port's
    // stale one count, which the plug-in, seeing no change of the port, would not apply.
    if (core) core->setParameter(index, value);
    write(controller, portOf(index), sizeof(float), 0, &value);
}

void LV2Window::endEdit(int index) {
    if (isParameter(index) && touch && touch->touch) touch->touch(touch->handle, portOf(index), false);
}

} // namespace kelm
