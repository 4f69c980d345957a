#include "plugin/gui/x11/X11Window.h"

#include <cstdint>
#include <cstdlib>

#include "engine/KELMException.h"

namespace kelm {

namespace {
// While one lives, X errors are counted instead of going to Xlib's default
// handler, which would end the host's process (say, for a parent window the host
// has already destroyed). The handler is the process's; the previous one returns.
class ErrorTrap {
public:
    explicit ErrorTrap(Display* d) : display(d) {
        XSync(display, False);
        errors = 0;
        previous = XSetErrorHandler(&ErrorTrap::count);
    }
    ~ErrorTrap() {
        XSync(display, False);
        XSetErrorHandler(previous);
    }
    bool failed() {
        XSync(display, False);
        return errors != 0;
    }
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;

private:
    static int count(Display*, XErrorEvent*) {
        ++errors;
        return 0;
    }
    static int errors;
    Display* display;
    XErrorHandler previous;
};
int ErrorTrap::errors = 0;

int shiftOf(unsigned long mask) {
    int s = 0;
    while (mask && !(mask & 1)) {
        mask >>= 1;
        ++s;
    }
    return s;
}
} // namespace

std::unique_ptr<PlatformWindow> PlatformWindow::create(void* parent, int width, int height, Listener* listener) {
    return std::unique_ptr<PlatformWindow>(
        new X11Window(static_cast<Window>(reinterpret_cast<uintptr_t>(parent)), width, height, listener));
}

X11Window::X11Window(Window parent, int w, int h, Listener* l) : listener(l), width(w), height(h) {
    display = XOpenDisplay(nullptr);
    if (!display) throw KELMException("Editor: cannot open the X display.");
    XWindowAttributes pa;
    bool usable;
    {
        ErrorTrap trap(display);
        usable = XGetWindowAttributes(display, parent, &pa) && !trap.failed();
    }
    if (!usable || (pa.depth != 24 && pa.depth != 32) || pa.visual->c_class != TrueColor) {
        XCloseDisplay(display);
        throw KELMException("Editor: the host's window is no 24 or 32 bit true-colour window.");
    }
    XSetWindowAttributes a;
    a.background_pixel = 0;
    a.border_pixel = 0;
    a.colormap = pa.colormap;
    a.event_mask = ExposureMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask;
    window = XCreateWindow(display, parent, 0, 0, static_cast<unsigned>(w), static_cast<unsigned>(h), 0, pa.depth,
                           InputOutput, pa.visual, CWBackPixel | CWBorderPixel | CWColormap | CWEventMask, &a);
    gc = XCreateGC(display, window, 0, nullptr);
    char* data = static_cast<char*>(std::calloc(static_cast<size_t>(w) * h, 4));
    image = XCreateImage(display, pa.visual, static_cast<unsigned>(pa.depth), ZPixmap, 0, data, static_cast<unsigned>(w),
                         static_cast<unsigned>(h), 32, 0);
    // Pixels are written as native 32-bit words; Xlib swaps them if the server wants the other order.
    const uint32_t one = 1;
    image->byte_order = *reinterpret_cast<const unsigned char*>(&one) ? LSBFirst : MSBFirst;
    redShift = shiftOf(pa.visual->red_mask);
    greenShift = shiftOf(pa.visual->green_mask);
    blueShift = shiftOf(pa.visual->blue_mask);
    XMapWindow(display, window);
    // A round trip, not just a flush: once open returns, the window exists for every client,
    // the host included (its connection is not ours, and the server may not yet have read
    // what we only sent).
    XSync(display, False);
}

X11Window::~X11Window() {
    {
        // A window the host destroyed first gives errors here, and they end here.
        ErrorTrap trap(display);
        if (image) XDestroyImage(image);  // frees the pixel data too
        if (gc) XFreeGC(display, gc);
        if (window) XDestroyWindow(display, window);
    }
    XCloseDisplay(display);
}

void* X11Window::nativeHandle() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(window)); }

void X11Window::present(const PixelBuffer& buffer, const CRect& want) {
    const CRect area = want.intersected(CRect(0, 0, width, height)).intersected(CRect(0, 0, buffer.width(), buffer.height()));
    if (area.isEmpty()) return;
    // Pixels sit on opaque black where the buffer is transparent (the background never is).
    const uint32_t alphaBits = image->depth == 32 ? 0xff000000u : 0;
    for (int y = area.top; y < area.bottom; ++y) {
        uint32_t* row = reinterpret_cast<uint32_t*>(image->data + static_cast<size_t>(y) * image->bytes_per_line);
        for (int x = area.left; x < area.right; ++x) {
            const uint8_t* p = buffer.pixel(x, y);
            row[x] = (uint32_t(p[0] * p[3] / 255) << redShift) | (uint32_t(p[1] * p[3] / 255) << greenShift) |
                     (uint32_t(p[2] * p[3] / 255) << blueShift) | alphaBits;
        }
    }
    ErrorTrap trap(display);
    XPutImage(display, window, gc, image, area.left, area.top, area.left, area.top,
              static_cast<unsigned>(area.width()), static_cast<unsigned>(area.height()));
}

void X11Window::pumpEvents() {
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        // Of a run of motions only the latest matters.
        if (event.type == MotionNotify)
            while (XCheckTypedWindowEvent(display, window, MotionNotify, &event)) {
            }
        dispatch(event);
    }
}

void X11Window::dispatch(const XEvent& event) {
    MouseEvent m;
    switch (event.type) {
    case Expose:
        if (event.xexpose.count == 0) listener->onExpose();
        return;
    case ButtonPress:
    case ButtonRelease: {
        const XButtonEvent& b = event.xbutton;
        m.x = b.x;
        m.y = b.y;
        m.shift = (b.state & ShiftMask) != 0;
        if (b.button == Button1) {
            m.type = event.type == ButtonPress ? MouseEvent::Down : MouseEvent::Up;
        } else if ((b.button == Button4 || b.button == Button5) && event.type == ButtonPress) {
            m.type = MouseEvent::Wheel;
            m.wheelSteps = b.button == Button4 ? 1 : -1;
        } else {
            return;
        }
        listener->onMouse(m);
        return;
    }
    case MotionNotify:
        m.type = MouseEvent::Move;
        m.x = event.xmotion.x;
        m.y = event.xmotion.y;
        m.shift = (event.xmotion.state & ShiftMask) != 0;
        listener->onMouse(m);
        return;
    default:
        return;
    }
}

} // namespace kelm
