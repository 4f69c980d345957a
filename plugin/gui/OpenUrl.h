#pragma once
#include <string>

namespace kelm {

// Opens a web address with the desktop's browser, without waiting for it and
// without a shell. False when no opener could be started.
bool openUrl(const std::string& address);

} // namespace kelm
