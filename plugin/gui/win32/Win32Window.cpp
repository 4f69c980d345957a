#include "plugin/gui/win32/Win32Window.h"

#include <windowsx.h>

#include <atomic>
#include <cstdio>

#include "engine/KELMException.h"
#include "plugin/platform/win32/ThisModule.h"

namespace kelm {

namespace {
// One class per loaded copy of the DLL: its name carries the module's address, so
// two plug-in files in one host never share a window procedure.
std::atomic<int> windowsOpen{0};

const wchar_t* className() {
    static wchar_t name[64] = {0};
    if (!name[0]) swprintf(name, 64, L"KelmEditor%p", static_cast<void*>(thisModule()));
    return name;
}

void registerClass() {
    WNDCLASSEXW wc = {};
    if (GetClassInfoExW(thisModule(), className(), &wc)) return;
    wc.cbSize = sizeof wc;
    wc.style = CS_DBLCLKS;
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = thisModule();
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.lpszClassName = className();
    RegisterClassExW(&wc);
}
} // namespace

std::unique_ptr<PlatformWindow> PlatformWindow::create(void* parent, int width, int height, Listener* listener) {
    return std::unique_ptr<PlatformWindow>(new Win32Window(static_cast<HWND>(parent), width, height, listener));
}

Win32Window::Win32Window(HWND parent, int w, int h, Listener* l)
    : listener(l), width(w), height(h), bgra(static_cast<size_t>(w) * h, 0) {
    if (!IsWindow(parent)) throw KELMException("Editor: the host's window is no window.");
    registerClass();
    hwnd = CreateWindowExW(0, className(), L"Kelm", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, w, h, parent,
                           nullptr, thisModule(), nullptr);
    if (!hwnd) throw KELMException("Editor: cannot create the window.");
    ++windowsOpen;
    // The procedure is set after creation, when the window knows its object.
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Win32Window::windowProc));
}

Win32Window::~Win32Window() {
    if (hwnd) {
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
        DestroyWindow(hwnd);
    }
    // The last window takes the class with it, so that the DLL can be unloaded cleanly.
    if (--windowsOpen == 0) UnregisterClassW(className(), thisModule());
}

LRESULT CALLBACK Win32Window::windowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<Win32Window*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    return self ? self->handle(message, wParam, lParam) : DefWindowProcW(hwnd, message, wParam, lParam);
}

void Win32Window::mouse(MouseEvent::Type type, int x, int y, int wheelSteps, WPARAM keys) {
    MouseEvent e;
    e.type = type;
    e.x = x;
    e.y = y;
    e.wheelSteps = wheelSteps;
    e.shift = (keys & MK_SHIFT) != 0;
    listener->onMouse(e);
}

LRESULT Win32Window::handle(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
        SetCapture(hwnd);  // the drag goes on outside the window
        mouse(MouseEvent::Down, GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam), 0, wParam);
        return 0;
    case WM_MOUSEMOVE:
        mouse(MouseEvent::Move, GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam), 0, wParam);
        return 0;
    case WM_LBUTTONUP:
        ReleaseCapture();
        mouse(MouseEvent::Up, GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam), 0, wParam);
        return 0;
    case WM_MOUSEWHEEL: {
        // Screen coordinates, and a delta in 120ths of a notch that fine wheels split up.
        POINT p = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        ScreenToClient(hwnd, &p);
        wheelRemainder += GET_WHEEL_DELTA_WPARAM(wParam);
        const int steps = wheelRemainder / WHEEL_DELTA;
        wheelRemainder -= steps * WHEEL_DELTA;
        if (steps) mouse(MouseEvent::Wheel, p.x, p.y, steps, GET_KEYSTATE_WPARAM(wParam));
        return 0;
    }
    case WM_PAINT: {
        PAINTSTRUCT ps;
        HDC dc = BeginPaint(hwnd, &ps);
        paint(dc, CRect(ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right, ps.rcPaint.bottom));
        EndPaint(hwnd, &ps);
        return 0;
    }
    case WM_ERASEBKGND:
        return 1;  // the whole window is painted from the buffer
    default:
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
}

void Win32Window::paint(HDC dc, const CRect& want) {
    const CRect area = want.intersected(CRect(0, 0, width, height));
    if (area.isEmpty()) return;
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;  // bottom-up
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    // In a bottom-up bitmap the source's y counts from the bottom row.
    StretchDIBits(dc, area.left, area.top, area.width(), area.height(), area.left, height - area.bottom, area.width(),
                  area.height(), bgra.data(), &info, DIB_RGB_COLORS, SRCCOPY);
}

void Win32Window::present(const PixelBuffer& buffer, const CRect& want) {
    const CRect area =
        want.intersected(CRect(0, 0, width, height)).intersected(CRect(0, 0, buffer.width(), buffer.height()));
    if (area.isEmpty()) return;
    for (int y = area.top; y < area.bottom; ++y) {
        uint32_t* row = &bgra[static_cast<size_t>(height - 1 - y) * width];
        for (int x = area.left; x < area.right; ++x) {
            const uint8_t* p = buffer.pixel(x, y);
            row[x] = (uint32_t(p[0] * p[3] / 255) << 16) | (uint32_t(p[1] * p[3] / 255) << 8) | uint32_t(p[2] * p[3] / 255);
        }
    }
    HDC dc = GetDC(hwnd);
    paint(dc, area);
    ReleaseDC(hwnd, dc);
    ValidateRect(hwnd, nullptr);
}

} // namespace kelm
