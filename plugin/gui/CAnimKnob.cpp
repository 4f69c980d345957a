#include "plugin/gui/CAnimKnob.h"

namespace kelm {

bool CAnimKnob::onMouseDown(const MouseEvent& e) {
    lastY = e.y;
    dragValue = getValue();
    beginEdit();
    return true;
}

void CAnimKnob::onMouseMove(const MouseEvent& e) {
    const float step = (e.shift ? kFineFactor : 1.0f) / kPixelsForFullTurn;
    dragValue += (lastY - e.y) * step;
    dragValue = dragValue < 0.0f ? 0.0f : dragValue > 1.0f ? 1.0f : dragValue;
    lastY = e.y;
    changeByUser(dragValue);
}

void CAnimKnob::onMouseUp(const MouseEvent& e) {
    onMouseMove(e);
    endEdit();
}

void CAnimKnob::onWheel(const MouseEvent& e) {
    const float frameStep = frames > 1 ? 1.0f / (frames - 1) : 0.01f;
    beginEdit();
    changeByUser(getValue() + e.wheelSteps * frameStep * (e.shift ? kFineFactor : 1.0f));
    endEdit();
}

} // namespace kelm
