#pragma once
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "plugin/gui/CControl.h"
#include "plugin/gui/PluginEditor.h"

namespace kelm {

// The preamp's window: one view per control, built from the control's UI
// properties in the system description (ControlType, Image, X, Y, Width,
// Height, NumberOfImages, HeightOfOneImage) over the fixed background, and the
// donate button. A view's tag is its control's index, which is the parameter index. The
// controls give the layout only; values come from the host.
class KelmEditor : public PluginEditor, public CControlListener {
public:
    KelmEditor(EditorHost& host, const std::vector<ControlPtr>& controls);
    ~KelmEditor() override;

    int width() const override;
    int height() const override;
    // parent: the host's window (X11 Window id or HWND); null opens off-screen.
    bool open(void* parent) override;
    void close() override;
    // From the plug-in, on any thread: moves the view while the window is open.
    void parameterChanged(int index, float value) override;
    // Brings every view to the plug-in's value (a host change that came while the
    // window was opening is not lost), then draws and presents what changed.
    void idle() override;

    void valueChanged(CControl* control) override;
    void controlBeginEdit(CControl* control) override;
    void controlEndEdit(CControl* control) override;

    // The views of the open window, indexed like the controls (empty when closed).
    const std::vector<CControl*>& getViews() const { return views; }
    size_t numberOfLoadedBitmaps() const { return bitmaps.size(); }

private:
    CControl* makeView(const Control& control, int tag);

    std::vector<ControlPtr> controls;
    std::map<std::string, CBitmapPtr> bitmaps;
    std::vector<CControl*> views;
    CBitmapPtr background;
};

} // namespace kelm
