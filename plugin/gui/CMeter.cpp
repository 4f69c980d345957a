#include "plugin/gui/CMeter.h"

#include <cmath>

namespace kelm {

void CMeter::setValue(float v) {
    if (!(v >= 0.0f)) v = 0.0f;
    // Redrawn only when the bar moves by a pixel or more.
    const int before = static_cast<int>(std::lround(std::fmin(value.load(), 1.0f) * size.width()));
    const int after = static_cast<int>(std::lround(std::fmin(v, 1.0f) * size.width()));
    const bool warnChanged = (value.load() >= warnAt) != (v >= warnAt);
    value.store(v);
    if (before != after || warnChanged) setDirty();
}

void CMeter::draw(PixelBuffer& target) {
    const float v = value.load();
    target.fill(size, 0x857564);
    const CRect inner(size.left + 1, size.top + 1, size.right - 1, size.bottom - 1);
    target.fill(inner, 0x1e1a17);
    const int w = static_cast<int>(std::lround(std::fmin(v, 1.0f) * inner.width()));
    target.fill(CRect(inner.left, inner.top, inner.left + w, inner.bottom), v >= warnAt ? 0xe0503c : 0x7fb04a);
}

} // namespace kelm
