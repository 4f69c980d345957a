#pragma once
#include <atomic>

#include "plugin/gui/CRect.h"
#include "plugin/gui/MouseEvent.h"
#include "plugin/gui/PixelBuffer.h"

namespace kelm {

// Something drawn in a frame at a fixed rectangle that may take pointer events.
// `dirty` is set from any thread and taken by the frame on the GUI thread.
class CView {
public:
    explicit CView(const CRect& size) : size(size) {}
    virtual ~CView() {}

    const CRect& getViewSize() const { return size; }
    // Draws into the frame's buffer over the background already under the view.
    virtual void draw(PixelBuffer& target) = 0;
    // Pointer events; Down returns true when the view takes the gesture.
    virtual bool onMouseDown(const MouseEvent&) { return false; }
    virtual void onMouseMove(const MouseEvent&) {}
    virtual void onMouseUp(const MouseEvent&) {}
    virtual void onWheel(const MouseEvent&) {}

    void setDirty() { dirty.store(true, std::memory_order_release); }
    bool takeDirty() { return dirty.exchange(false, std::memory_order_acq_rel); }

protected:
    CRect size;

private:
    std::atomic<bool> dirty{true};
};

} // namespace kelm
