#pragma once
#include <cstdint>
#include <memory>

#include <lv2/ui/ui.h>

#include "plugin/core/CircuitEffect.h"
#include "plugin/editor/CircuitEditor.h"
#include "plugin/gui/EditorHost.h"

namespace kelm {

// Kelm Circuit's window as an LV2 UI (ui:X11UI). The window needs the effect itself (it loads
// documents, shows their controls, the load's status and the CPU meter), which the host hands
// over through instance-access; parameter changes still go through the control ports, so that
// the host records them: a knob turned writes its port inside a ui:touch gesture, and the
// effect takes the value at once so that the window, which shows the effect, follows the drag
// before the next block applies the port.
class CircuitLV2UI : public EditorHost {
public:
    // core: the effect of the plug-in instance this window belongs to.
    CircuitLV2UI(CircuitEffect& core, LV2UI_Write_Function write, LV2UI_Controller controller,
                 const LV2UI_Touch* touch);
    ~CircuitLV2UI() override;

    // Opens the window in the host's X11 window; a KELMException when that is impossible.
    void open(void* parent);
    // The X11 Window id of the UI's window, for the host.
    LV2UI_Widget widget() const;
    int width() const { return editor->width(); }
    int height() const { return editor->height(); }
    // A value the host reports for a port (format 0: one float).
    void portEvent(uint32_t port, uint32_t size, uint32_t format, const void* buffer);
    // The host's idle call: the window follows the effect, takes its events and draws. 0 while
    // the window is open.
    int idle();

    CircuitEditor& getEditor() const { return *editor; }

    float parameterValue(int index) override;
    void beginEdit(int index) override;
    void performEdit(int index, float value) override;
    void endEdit(int index) override;

private:
    bool isParameter(int index) const { return index >= 0 && index < CircuitEffect::kNumberOfParameters; }

    CircuitEffect& core;
    LV2UI_Write_Function write;
    LV2UI_Controller controller;
    const LV2UI_Touch* touch;
    std::unique_ptr<CircuitEditor> editor;
};

} // namespace kelm
