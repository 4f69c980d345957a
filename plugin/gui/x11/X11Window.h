#pragma once
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "plugin/gui/PlatformWindow.h"

namespace kelm {

// The frame's window on X11: a child of the host's window on a connection of
// its own, polled (never waited on) from the host's idle calls, shown with XPutImage.
class X11Window : public PlatformWindow {
public:
    X11Window(Window parent, int width, int height, Listener* listener);
    ~X11Window() override;

    void present(const PixelBuffer& buffer, const CRect& area) override;
    void pumpEvents() override;
    void* nativeHandle() const override;

private:
    void dispatch(const XEvent& event);

    Display* display = nullptr;
    Window window = 0;
    GC gc = nullptr;
    XImage* image = nullptr;
    Listener* listener;
    int width, height;
    int redShift = 16, greenShift = 8, blueShift = 0;
};

} // namespace kelm
