#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <lv2/ui/ui.h>

#include "plugin/core/EffectCore.h"
#include "plugin/gui/EditorHost.h"
#include "plugin/gui/PluginEditor.h"

namespace kelm {

// A Kelm plug-in's window as an LV2 UI (ui:X11UI): the editor every format shows, over the
// plug-in's control ports. The host's port events move the knobs; a knob turned writes its
// port, so that the host records it, inside a ui:touch gesture where the host offers one.
// The window shows the values it last heard or wrote; one that has the plug-in's effect
// (through instance-access) shows the effect's and hands it a turned value at once, so that
// the window, which follows the effect, follows a drag before the next block applies the port.
class LV2Window : public EditorHost {
public:
    // The editor over the window's host side.
    typedef std::function<std::unique_ptr<PluginEditor>(EditorHost&)> Editor;

    // values: every parameter's value before the host reports its port; core: the effect of
    // the plug-in instance, or null for a window that talks to it through its ports only.
    LV2Window(const std::vector<float>& values, EffectCore* core, const Editor& editor, LV2UI_Write_Function write,
              LV2UI_Controller controller, const LV2UI_Touch* touch);
    ~LV2Window() override;

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
    bool isParameter(int index) const { return index >= 0 && static_cast<size_t>(index) < values.size(); }
    static uint32_t portOf(int index);

    std::vector<float> values;
    EffectCore* core;
    LV2UI_Write_Function write;
    LV2UI_Controller controller;
    const LV2UI_Touch* touch;
    std::unique_ptr<PluginEditor> editor;
};

} // namespace kelm
