#pragma once
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "plugin/gui/AEffGUIEditor.h"
#include "plugin/gui/CControl.h"

namespace kelm {

// The preamp's window: one view per control, built from the control's UI
// properties in the system description (ControlType, Image, X, Y, Width,
// Height, NumberOfImages, HeightOfOneImage) over the fixed background, and the
// donate button. A view's tag is its control's index, which is the parameter index.
class KelmEditor : public AEffGUIEditor, public CControlListener {
public:
    KelmEditor(vst2::AudioEffect* effect, const std::vector<ControlPtr>& controls);
    ~KelmEditor() override;

    // parent: the host's window (X11 Window id or HWND); null opens off-screen.
    bool open(void* parent) override;
    void close() override;
    // From the effect, on any thread: moves the view while the window is open.
    void setParameter(vst2::VstInt32 index, float value) override;
    // Brings every view to its control's value (a host change that came while the
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
