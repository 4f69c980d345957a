#include "plugin/gui/CMeter.h"

#include <cmath>

namespace kelm {

int CMeter::barWidth(float v) const {
    return static_cast<int>(std::lround(std::fmin(v, 1.0f) * (size.width() - 2)));
}

void CMeter::setValue(float v) {
    if (!(v >= 0.0f)) v = 0.0f;
    // Redrawn only when the bar (inside the frame) moves by a pixel or more.
    const int before = barWidth(value.load());
    const bool warnChanged = (value.load() >= warnAt) != (v >= warnAt);
    value.store(v);
    if (before != barWidth(v) || warnChanged) setDirty();
}

void CMeter::draw(PixelBuffer& target) {
    const float v = value.load();
    target.fill(size, 0x857564);
    const CRect inner(size.left + 1, size.top + 1, size.right - 1, size.bottom - 1);
    target.fill(inner, 0x1e1a17);
    target.fill(CRect(inner.left, inner.top, inner.left + barWidth(v), inner.bottom), v >= warnAt ? 0xe0503c : 0x7fb04a);
}

} // namespace kelm
