#include "plugin/gui/CMultiFrameSwitch.h"

namespace kelm {

CMultiFrameSwitch::CMultiFrameSwitch(const CRect& size, CControlListener* listener, int tag, int numberOfImages,
                                     int heightOfOneImage, const CBitmapPtr& bitmap)
    : CControl(size, listener, tag, bitmap) {
    if (heightOfOneImage > 0) frameHeight = heightOfOneImage;
    if (numberOfImages > 0)
        frames = numberOfImages;
    else if (bitmap && frameHeight > 0)
        frames = bitmap->getHeight() / frameHeight;
    if (frames < 1) frames = 1;
}

void CMultiFrameSwitch::moveTo(int p) {
    changeByUser(frames > 1 ? static_cast<float>(p) / (frames - 1) : 0.0f);
}

bool CMultiFrameSwitch::onMouseDown(const MouseEvent&) {
    beginEdit();
    moveTo((position() + 1) % frames);
    return true;
}

void CMultiFrameSwitch::onMouseUp(const MouseEvent&) { endEdit(); }

void CMultiFrameSwitch::onWheel(const MouseEvent& e) {
    int p = position() + (e.wheelSteps > 0 ? 1 : e.wheelSteps < 0 ? -1 : 0);
    p = p < 0 ? 0 : p >= frames ? frames - 1 : p;
    beginEdit();
    moveTo(p);
    endEdit();
}

} // namespace kelm
