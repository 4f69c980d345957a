#include "plugin/gui/FileDialog.h"

#include <windows.h>
#include <commdlg.h>

#include <vector>

namespace kelm {

namespace {

// comdlg32 is loaded when the dialog is first asked for, so that the plug-ins import only
// the system DLLs every process has loaded.
typedef BOOL(WINAPI* OpenFileName)(LPOPENFILENAMEW);

OpenFileName openFileName() {
    static OpenFileName f = [] {
        HMODULE m = LoadLibraryW(L"comdlg32.dll");
        return m ? reinterpret_cast<OpenFileName>(reinterpret_cast<void*>(GetProcAddress(m, "GetOpenFileNameW"))) : nullptr;
    }();
    return f;
}

} // namespace

bool FileDialog::available() { return openFileName() != nullptr; }

bool FileDialog::open(void* parent, std::string& path) {
    std::vector<wchar_t> file(32768, L'\0');
    static const wchar_t filter[] = L"Circuits (*.xml;*.cir;*.net)\0*.xml;*.cir;*.net\0All files (*.*)\0*.*\0\0";
    OPENFILENAMEW o = {};
    o.lStructSize = sizeof o;
    o.hwndOwner = static_cast<HWND>(parent);
    o.lpstrFilter = filter;
    o.lpstrFile = file.data();
    o.nMaxFile = static_cast<DWORD>(file.size());
    o.lpstrTitle = L"Load a circuit";
    o.Flags = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
    const OpenFileName dialog = openFileName();
    if (!dialog || !dialog(&o)) return false;
    // The path as UTF-8, as the effect reads file names.
    const int n = WideCharToMultiByte(CP_UTF8, 0, file.data(), -1, nullptr, 0, nullptr, nullptr);
    if (n <= 1) return false;
    std::string utf8(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, file.data(), -1, &utf8[0], n, nullptr, nullptr);
    utf8.resize(static_cast<size_t>(n - 1));
    path = utf8;
    return true;
}

} // namespace kelm
