// A Windows host window for a plug-in's editor: loads Kelm.dll (or KelmCircuit.dll), opens the editor
// in a top-level window of its own, runs the message loop with the editor's idle
// calls for a while, and prints the parameters at the end, what the host heard and the
// first parameters' names.
//
//   EditorHost Kelm.dll SECONDS
//
// The window's title is "Kelm editor host"; tests/windows/editor/run.sh drives it
// under wine with xdotool. The exit status is 0 when the editor opened and closed.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "plugin/vst2/aeffect.h"

using namespace kelm::vst2;

namespace {

int automated = 0, begun = 0, ended = 0;

VstIntPtr KELM_VSTCALLBACK host(AEffect*, VstInt32 opcode, VstInt32, VstIntPtr, void*, float) {
    switch (opcode) {
    case audioMasterVersion:
        return 2400;
    case audioMasterAutomate:
        ++automated;
        return 0;
    case audioMasterBeginEdit:
        ++begun;
        return 0;
    case audioMasterEndEdit:
        ++ended;
        return 0;
    default:
        return 0;
    }
}

typedef AEffect*(KELM_VSTCALLBACK* Entry)(AudioMasterCallback);

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: EditorHost Kelm.dll SECONDS\n");
        return 1;
    }
    HMODULE dll = LoadLibraryA(argv[1]);
    Entry entry = dll ? reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(dll, "VSTPluginMain"))) : nullptr;
    AEffect* effect = entry ? entry(host) : nullptr;
    if (!effect) {
        std::fprintf(stderr, "cannot load %s\n", argv[1]);
        return 1;
    }
    ERect* rect = nullptr;
    effect->dispatcher(effect, effEditGetRect, 0, 0, &rect, 0);
    const int width = rect ? rect->right - rect->left : 0, height = rect ? rect->bottom - rect->top : 0;

    WNDCLASSA wc = {};
    wc.lpfnWndProc = DefWindowProcA;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.lpszClassName = "KelmEditorHostWindow";
    RegisterClassA(&wc);
    // A window without a frame: its client area is all of it, at the screen's top left.
    HWND parent = CreateWindowA("KelmEditorHostWindow", "Kelm editor host", WS_POPUP | WS_VISIBLE, 0, 0,
                                width, height, nullptr, nullptr, wc.hInstance,
                                nullptr);
    const VstIntPtr opened = effect->dispatcher(effect, effEditOpen, 0, 0, parent, 0);
    HWND child = GetWindow(parent, GW_CHILD);
    std::printf("rect %dx%d opened %d child %d\n", width, height, static_cast<int>(opened), child ? 1 : 0);
    std::fflush(stdout);

    // Idle about every 20 ms, as hosts do, while the messages flow.
    const DWORD end = GetTickCount() + static_cast<DWORD>(std::atof(argv[2]) * 1000);
    while (GetTickCount() < end) {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&msg);
            DispatchMessageA(&msg);
        }
        effect->dispatcher(effect, effEditIdle, 0, 0, nullptr, 0);
        Sleep(20);
    }
    effect->dispatcher(effect, effEditClose, 0, 0, nullptr, 0);
    const bool childGone = GetWindow(parent, GW_CHILD) == nullptr;
    std::printf("gain %.4f cpu %.4f automate %d begin %d end %d closed %d\n", effect->getParameter(effect, 1),
                effect->getParameter(effect, 8), automated, begun, ended, childGone ? 1 : 0);
    // The first parameters' names, as the host would list them (Kelm Circuit's follow its document).
    std::printf("names");
    for (int i = 0; i < 4 && i < effect->numParams; ++i) {
        char name[64] = {0};
        effect->dispatcher(effect, effGetParamName, i, 0, name, 0);
        std::printf("%s%s", i ? "," : " ", name);
    }
    std::printf("\n");
    effect->dispatcher(effect, effClose, 0, 0, nullptr, 0);
    DestroyWindow(parent);
    FreeLibrary(dll);
    return opened == 1 && child && childGone ? 0 : 1;
}
