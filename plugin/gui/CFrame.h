#pragma once
#include <memory>
#include <vector>

#include "plugin/gui/CBitmap.h"
#include "plugin/gui/CView.h"
#include "plugin/gui/PlatformWindow.h"

namespace kelm {

// The editor's surface: a background bitmap, the views over it, and the pixel
// buffer they draw into. It owns its views. Opened with a parent window it shows
// the buffer in a child window; without one it renders off-screen only.
class CFrame : public PlatformWindow::Listener {
public:
    CFrame(const CRect& size, const CBitmapPtr& background);
    ~CFrame() override;

    // Creates the child window in `parent`; a null parent keeps the frame off-screen.
    void open(void* parent);
    bool isOpen() const { return window != nullptr; }
    void* nativeHandle() const { return window ? window->nativeHandle() : nullptr; }

    // Takes ownership of the view.
    void addView(CView* view);
    // Deletes the view, if it is one of the frame's.
    void removeView(CView* view);
    size_t numberOfViews() const { return views.size(); }
    // The topmost view at (x, y), or null.
    CView* viewAt(int x, int y) const;

    // The GUI thread's periodic work: takes the window's events, redraws the
    // views marked dirty and presents what changed. Returns the redrawn area.
    CRect idle();
    // Draws the background and every view afresh.
    void renderAll();
    const PixelBuffer& getBuffer() const { return buffer; }
    const CRect& getSize() const { return size; }

    // Pointer input in frame coordinates (the window calls this; tests may too).
    void onMouse(const MouseEvent& e) override;
    void onExpose() override { exposed = true; }

private:
    CRect redrawDirty();
    void drawView(CView* view);

    CRect size;
    CBitmapPtr background;
    PixelBuffer buffer;
    std::vector<std::unique_ptr<CView>> views;
    std::unique_ptr<PlatformWindow> window;
    CView* captured = nullptr;  // the view that took the pointer's Down until its Up
    bool exposed = true;
};

} // namespace kelm
