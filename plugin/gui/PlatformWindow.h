#pragma once
#include <memory>

#include "plugin/gui/CRect.h"
#include "plugin/gui/MouseEvent.h"
#include "plugin/gui/PixelBuffer.h"

namespace kelm {

// The operating system's part of a frame: a child window inside the host's
// parent window that shows a pixel buffer and reports pointer events. One
// implementation per platform (X11, Win32); everything above it is portable.
class PlatformWindow {
public:
    // What the window reports, on the GUI thread.
    class Listener {
    public:
        virtual ~Listener() {}
        virtual void onMouse(const MouseEvent& e) = 0;
        // The window's contents were lost and must be presented again.
        virtual void onExpose() = 0;
    };

    // Creates the child of `parent` (an X11 Window id, or an HWND), width x height
    // pixels at the parent's top left. A KELMException when that is impossible.
    static std::unique_ptr<PlatformWindow> create(void* parent, int width, int height, Listener* listener);

    virtual ~PlatformWindow() {}
    // Shows the area of the buffer (which has the window's size).
    virtual void present(const PixelBuffer& buffer, const CRect& area) = 0;
    // Delivers the events that wait, without blocking.
    virtual void pumpEvents() = 0;
    // The native handle: the X11 Window id or the HWND.
    virtual void* nativeHandle() const = 0;
};

} // namespace kelm
