#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include <lv2/ui/ui.h>

#include "engine/Control.h"
#include "plugin/gui/EditorHost.h"
#include "plugin/gui/PluginEditor.h"

namespace kelm {

// The preamp's window as an LV2 UI (ui:X11UI): the same editor as in every format, talking
// to the plug-in through its control ports only. The host's port events move the knobs;
// a knob turned writes its port, and a gesture is announced through ui:touch where the
// host offers it. The UI keeps the values it last heard or wrote.
class KelmLV2UI : public EditorHost {
public:
    // controls: the built-in document's controls (their layout and default values).
    KelmLV2UI(const std::vector<ControlPtr>& controls, LV2UI_Write_Function write, LV2UI_Controller controller,
              const LV2UI_Touch* touch);
    ~KelmLV2UI() override;

    // Opens the window in the host's X11 window; a KELMException when that is impossible.
    void open(void* parent);
    // The X11 Window id of the UI's window, for the host.
    LV2UI_Widget widget() const;
    int width() const { return editor->width(); }
    int height() const { return editor->height(); }
    // A value the host reports for a port (format 0: one float).
    void portEvent(uint32_t port, uint32_t size, uint32_t format, const void* buffer);
    // The host's idle call: the window's events and drawing. 0 while the window is open.
    int idle();

    PluginEditor& getEditor() const { return *editor; }

    float parameterValue(int index) override;
    void beginEdit(int index) override;
    void performEdit(int index, float value) override;
    void endEdit(int index) override;

private:
    uint32_t portOf(int index) const;

    std::vector<float> values;
    LV2UI_Write_Function write;
    LV2UI_Controller controller;
    const LV2UI_Touch* touch;
    std::unique_ptr<PluginEditor> editor;
};

} // namespace kelm
