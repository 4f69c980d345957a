#pragma once
#include "plugin/gui/CControl.h"

namespace kelm {

// A two-state button: frame 0 off, frame 1 on; each click flips it.
class COnOffButton : public CControl {
public:
    COnOffButton(const CRect& size, CControlListener* listener, int tag, const CBitmapPtr& bitmap)
        : CControl(size, listener, tag, bitmap) {}

    bool onMouseDown(const MouseEvent& e) override;
    void onMouseUp(const MouseEvent& e) override;
};

} // namespace kelm
