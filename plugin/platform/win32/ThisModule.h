#pragma once
#include <windows.h>

namespace kelm {

// The handle of the module (DLL or program) that holds this code, not of the host
// executable that loaded it: resources and window classes belong to it.
HMODULE thisModule();

} // namespace kelm
