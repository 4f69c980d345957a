#pragma once
#include "plugin/gui/CControl.h"

namespace kelm {

// A switch of n positions drawn from n stacked frames: position k is the value
// k / (n - 1). A click steps to the next position (after the last comes the first),
// a wheel step moves one position without wrapping.
class CMultiFrameSwitch : public CControl {
public:
    // numberOfImages <= 0 takes as many frames as the bitmap holds; heightOfOneImage <= 0 the view's height.
    CMultiFrameSwitch(const CRect& size, CControlListener* listener, int tag, int numberOfImages,
                      int heightOfOneImage, const CBitmapPtr& bitmap);

    int position() const { return currentFrame(); }
    bool onMouseDown(const MouseEvent& e) override;
    void onMouseUp(const MouseEvent& e) override;
    void onWheel(const MouseEvent& e) override;

private:
    void moveTo(int position);
};

} // namespace kelm
