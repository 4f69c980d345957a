#pragma once
#include "plugin/gui/CControl.h"

namespace kelm {

// A knob drawn from a strip of stacked frames: value v shows frame round(v (frames - 1)).
// A vertical drag turns it (upwards increases; Shift gives a ten times finer step),
// each wheel step moves it by one frame.
class CAnimKnob : public CControl {
public:
    static constexpr float kPixelsForFullTurn = 200.0f;
    static constexpr float kFineFactor = 0.1f;

    CAnimKnob(const CRect& size, CControlListener* listener, int tag, const CBitmapPtr& bitmap)
        : CControl(size, listener, tag, bitmap) {}

    bool onMouseDown(const MouseEvent& e) override;
    void onMouseMove(const MouseEvent& e) override;
    void onMouseUp(const MouseEvent& e) override;
    void onWheel(const MouseEvent& e) override;

private:
    int lastY = 0;
    float dragValue = 0;  // unclamped between moves, so that a drag past an end and back feels exact
};

} // namespace kelm
