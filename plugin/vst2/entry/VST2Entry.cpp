// The entry points a VST 2 host looks up: VSTPluginMain, and main as a second name of it.
// On Linux the export list is plugin/vst2/exports.map and main is an assembler name; on
// Windows plugin/vst2/exports.def exports both (main as a name of kelmVstMain).
#include <cstdint>

#include "plugin/vst2/entry/VST2Entry.h"

using namespace kelm::vst2;

#ifdef _WIN32
#define KELM_EXPORT extern "C"
#define KELM_MAIN_NAME
#else
#define KELM_EXPORT extern "C" __attribute__((visibility("default")))
#define KELM_MAIN_NAME __asm__("main")
#endif

KELM_EXPORT AEffect* KELM_VSTCALLBACK VSTPluginMain(AudioMasterCallback audioMaster) {
    // A host that does not answer its version gets no effect.
    if (!audioMaster || audioMaster(nullptr, audioMasterVersion, 0, 0, nullptr, 0) == 0) return nullptr;
#ifdef _WIN32
    // A Windows host has a C++ runtime of its own: an exception leaving the DLL ends it.
    try {
#endif
        return createPluginEffect(audioMaster);
#ifdef _WIN32
    } catch (...) {
        return nullptr;
    }
#endif
}

// Exported under the name "main". When the file is started as a program the argument
// is no callback (it is argc), and nothing is created.
KELM_EXPORT AEffect* KELM_VSTCALLBACK kelmVstMain(AudioMasterCallback audioMaster) KELM_MAIN_NAME;
KELM_EXPORT AEffect* KELM_VSTCALLBACK kelmVstMain(AudioMasterCallback audioMaster) {
    if (reinterpret_cast<uintptr_t>(audioMaster) < 0xff) return nullptr;
    return VSTPluginMain(audioMaster);
}
