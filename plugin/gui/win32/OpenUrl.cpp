#include "plugin/gui/OpenUrl.h"

#include <windows.h>

#include <shellapi.h>

namespace kelm {

bool openUrl(const std::string& address) {
    // Values above 32 mean success.
    return reinterpret_cast<INT_PTR>(ShellExecuteA(nullptr, "open", address.c_str(), nullptr, nullptr, SW_SHOWNORMAL)) > 32;
}

} // namespace kelm
