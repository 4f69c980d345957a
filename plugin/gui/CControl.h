#pragma once
#include <atomic>

#include "plugin/gui/CBitmap.h"
#include "plugin/gui/CControlListener.h"
#include "plugin/gui/CView.h"

namespace kelm {

// A view with a value from 0 to 1, a tag naming it to its listener, and a bitmap
// of stacked frames of the view's height. setValue may come from any thread: it
// stores atomically and marks the view for redrawing on the GUI thread.
class CControl : public CView {
public:
    CControl(const CRect& size, CControlListener* listener, int tag, const CBitmapPtr& bitmap);

    int getTag() const { return tag; }
    float getValue() const { return value.load(std::memory_order_acquire); }
    // Clamps to 0..1; tells no listener.
    void setValue(float v);
    CControlListener* getListener() const { return listener; }
    const CBitmapPtr& getBitmap() const { return bitmap; }

    // Number of frames in the bitmap and the one shown for the current value.
    int numberOfFrames() const { return frames; }
    virtual int currentFrame() const;
    void draw(PixelBuffer& target) override;

protected:
    // A user change: stores the value and tells the listener when it moved.
    void changeByUser(float v);
    void beginEdit();
    void endEdit();

    CControlListener* listener;
    int tag;
    CBitmapPtr bitmap;
    int frames = 1;
    int frameHeight;

private:
    std::atomic<float> value{0.0f};
};

} // namespace kelm
