#pragma once
#include <windows.h>

#include <vector>

#include "plugin/gui/PlatformWindow.h"

namespace kelm {

// The frame's window on Windows: a child HWND of the host's window, of a window
// class registered for this DLL, shown with StretchDIBits. Its messages arrive
// through the host's message loop, so pumpEvents has nothing to do.
class Win32Window : public PlatformWindow {
public:
    Win32Window(HWND parent, int width, int height, Listener* listener);
    ~Win32Window() override;

    void present(const PixelBuffer& buffer, const CRect& area) override;
    void pumpEvents() override {}
    void* nativeHandle() const override { return hwnd; }

private:
    static LRESULT CALLBACK windowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT handle(UINT message, WPARAM wParam, LPARAM lParam);
    void mouse(MouseEvent::Type type, int x, int y, int wheelSteps, WPARAM keys);
    void paint(HDC dc, const CRect& area);

    HWND hwnd = nullptr;
    Listener* listener;
    int width, height;
    std::vector<uint32_t> bgra;  // what the window shows, bottom-up rows as GDI reads them
    int wheelRemainder = 0;
};

} // namespace kelm
