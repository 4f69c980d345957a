#pragma once
// A host's top-level X11 window for a plug-in's window to live in, with what the tests do
// through the X server: count its children, take a screenshot, and drive the pointer with
// xdotool while the host keeps idling the plug-in. Needs DISPLAY (tests/plugin/with-xvfb.sh).
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

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

} // namespace test
} // namespace kelm
