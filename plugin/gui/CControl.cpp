#include "plugin/gui/CControl.h"

#include <cmath>

namespace kelm {

namespace {
float clamp01(float v) { return v < 0.0f ? 0.0f : v > 1.0f ? 1.0f : (v == v ? v : 0.0f); }
} // namespace

CControl::CControl(const CRect& size, CControlListener* listener, int tag, const CBitmapPtr& bitmap)
    : CView(size), listener(listener), tag(tag), bitmap(bitmap), frameHeight(size.height()) {
    if (bitmap && frameHeight > 0) frames = bitmap->getHeight() / frameHeight;
    if (frames < 1) frames = 1;
}

void CControl::setValue(float v) {
    v = clamp01(v);
    if (value.exchange(v, std::memory_order_acq_rel) != v) setDirty();
}

int CControl::currentFrame() const {
    return static_cast<int>(std::lround(getValue() * (frames - 1)));
}

void CControl::draw(PixelBuffer& target) {
    if (!bitmap) return;
    const int top = currentFrame() * frameHeight;
    target.blend(bitmap->pixels(), CRect(0, top, size.width(), top + frameHeight), size.left, size.top);
}

void CControl::changeByUser(float v) {
    const float before = getValue();
    setValue(v);
    if (getValue() != before && listener) listener->valueChanged(this);
}

void CControl::beginEdit() {
    if (listener) listener->controlBeginEdit(this);
}

void CControl::endEdit() {
    if (listener) listener->controlEndEdit(this);
}

} // namespace kelm
