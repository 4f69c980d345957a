#include "plugin/gui/COnOffButton.h"

namespace kelm {

bool COnOffButton::onMouseDown(const MouseEvent&) {
    beginEdit();
    changeByUser(getValue() >= 0.5f ? 0.0f : 1.0f);
    return true;
}

void COnOffButton::onMouseUp(const MouseEvent&) { endEdit(); }

} // namespace kelm
