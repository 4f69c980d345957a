#pragma once
// A host's top-level X11 window for a plug-in's window to live in, with what the tests do
// through the X server: count its children, take a screenshot, and drive the pointer with
// xdotool while the host keeps idling the plug-in. Needs DISPLAY (tests/plugin/with-xvfb.sh).
// Also the preamp's window drawn off-screen, the reference of what a screenshot must show.
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "plugin/core/KelmEffect.h"
#include "plugin/editor/KelmEditor.h"
#include "plugin/gui/EditorHost.h"
#include "plugin/gui/PixelBuffer.h"

// Last: Xlib's macros (None, Bool) would break the test framework's headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

extern char** environ;

namespace kelm {
namespace test {

class X11ParentWindow {
public:
    X11ParentWindow(int width, int height) {
        if (!display) return;
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, width, height, 0, 0, 0x202020);
        XSelectInput(display, window, StructureNotifyMask);
        XMapWindow(display, window);
        for (XEvent e;;) {
            XNextEvent(display, &e);
            if (e.type == MapNotify) break;
        }
    }
    ~X11ParentWindow() {
        if (display) XCloseDisplay(display);
    }
    X11ParentWindow(const X11ParentWindow&) = delete;
    X11ParentWindow& operator=(const X11ParentWindow&) = delete;

    bool ready() const { return display && window; }
    void* handle() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(window)); }
    unsigned children() {
        XSync(display, False);
        Window root, up, *kids = nullptr;
        unsigned n = 0;
        XQueryTree(display, window, &root, &up, &kids, &n);
        if (kids) XFree(kids);
        return n;
    }
    // Calls idle about every 10 ms for a while, as a host's GUI loop does.
    void idleFor(int milliseconds, const std::function<void()>& idle) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (std::chrono::steady_clock::now() < end) {
            idle();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    // Runs xdotool with the arguments (the window's id stands for "WINDOW") while idling,
    // until it has finished; its exit status.
    int xdotool(std::vector<std::string> args, const std::function<void()>& idle) {
        std::vector<std::string> all{"xdotool"};
        for (std::string& a : args) all.push_back(a == "WINDOW" ? std::to_string(window) : a);
        std::vector<char*> argv;
        for (std::string& a : all) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        pid_t pid = 0;
        if (posix_spawnp(&pid, "xdotool", nullptr, nullptr, argv.data(), environ) != 0) return -1;
        int status = 0;
        while (waitpid(pid, &status, WNOHANG) == 0) idleFor(10, idle);
        idleFor(150, idle);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int click(int x, int y, const std::function<void()>& idle) {
        return xdotool({"mousemove", "--window", "WINDOW", std::to_string(x), std::to_string(y), "click", "1"}, idle);
    }
    int click(const CRect& r, const std::function<void()>& idle) {
        return click((r.left + r.right) / 2, (r.top + r.bottom) / 2, idle);
    }
    // Presses the button at (x, y) and lets go 40 pixels higher, in two moves.
    int dragUp40(int x, int y, const std::function<void()>& idle) {
        const std::string sx = std::to_string(x);
        return xdotool({"mousemove", "--window", "WINDOW", sx, std::to_string(y), "mousedown", "1", "mousemove",
                        "--window", "WINDOW", sx, std::to_string(y - 20), "mousemove", "--window", "WINDOW", sx,
                        std::to_string(y - 40), "mouseup", "1"},
                       idle);
    }
    // What the X server shows in the window's top left width x height pixels.
    PixelBuffer screenshot(int width, int height) {
        XSync(display, False);
        XImage* image = XGetImage(display, window, 0, 0, width, height, AllPlanes, ZPixmap);
        PixelBuffer out(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const unsigned long p = XGetPixel(image, x, y);
                uint8_t* d = out.data() + (static_cast<size_t>(y) * width + x) * 4;
                d[0] = (p >> 16) & 255;
                d[1] = (p >> 8) & 255;
                d[2] = p & 255;
                d[3] = 255;
            }
        XDestroyImage(image);
        return out;
    }

    Display* display = XOpenDisplay(nullptr);
    Window window = 0;
};

// How many pixels differ in colour (alpha aside).
inline int differingPixels(const PixelBuffer& a, const PixelBuffer& b) {
    int differ = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) differ += (a.rgba(x, y) | 255) != (b.rgba(x, y) | 255);
    return differ;
}

// Counts the pixels that changed from `before` to `after` inside and outside `area`.
inline void changedPixels(const PixelBuffer& before, const PixelBuffer& after, const CRect& area, int& inside,
                          int& outside) {
    inside = outside = 0;
    for (int y = 0; y < before.height(); ++y)
        for (int x = 0; x < before.width(); ++x)
            if (after.rgba(x, y) != before.rgba(x, y)) (area.contains(x, y) ? inside : outside)++;
}

// A host that ignores the editor's edits.
struct SilentEditorHost : EditorHost {
    void beginEdit(int) override {}
    void performEdit(int, float) override {}
    void endEdit(int) override {}
};

// The preamp's window off-screen at the effect's values.
struct OffScreenEditor : SilentEditorHost {
    KelmEffect effect;
    KelmEditor editor{*this, effect.getDriver().getControls()};
    float parameterValue(int index) override { return effect.getParameter(index); }
};

} // namespace test
} // namespace kelm
