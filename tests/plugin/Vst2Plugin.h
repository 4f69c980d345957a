#pragma once
// The plug-in as a host sees it: the built module loaded with dlopen, its entry points, and an
// instance driven through the dispatcher. Shared by the host tests.
#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <string>

#include "plugin/vst2/aeffect.h"
#include "tests/TestUtil.h"

namespace kelm {
namespace test {
namespace vst2host {

using namespace kelm::vst2;

inline std::atomic<int> pinAnswer{0};  // what the host answers to audioMasterPinConnected (0 means connected)
inline std::atomic<int> automateCount{0};

inline VstIntPtr KELM_VSTCALLBACK hostCallback(AEffect*, VstInt32 opcode, VstInt32, VstIntPtr, void*, float) {
    switch (opcode) {
    case audioMasterVersion:
        return 2400;
    case audioMasterPinConnected:
        return pinAnswer.load();
    case audioMasterAutomate:
        ++automateCount;
        return 0;
    default:
        return 0;
    }
}

inline VstIntPtr KELM_VSTCALLBACK silentHost(AEffect*, VstInt32, VstInt32, VstIntPtr, void*, float) { return 0; }

typedef AEffect* (*Entry)(AudioMasterCallback);

// The plug-in loaded once for the whole suite, as a host keeps a module.
struct Module {
    void* handle = nullptr;
    Entry entry = nullptr;
    Entry mainEntry = nullptr;
    Module() {
        handle = dlopen(KELM_VST2_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!handle) return;
        entry = reinterpret_cast<Entry>(dlsym(handle, "VSTPluginMain"));
        mainEntry = reinterpret_cast<Entry>(dlsym(handle, "main"));
    }
};

inline Module& module() {
    static Module m;
    return m;
}

struct Plugin {
    AEffect* e;
    explicit Plugin(AudioMasterCallback cb = hostCallback) : e(module().entry(cb)) {}
    ~Plugin() {
        if (e) e->dispatcher(e, effClose, 0, 0, nullptr, 0);
    }
    VstIntPtr call(VstInt32 op, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr, float opt = 0) {
        return e->dispatcher(e, op, index, value, ptr, opt);
    }
    std::string text(VstInt32 op, VstInt32 index = 0) {
        char buf[256];
        std::memset(buf, 'X', sizeof buf);
        call(op, index, 0, buf);
        return buf;
    }
    void start(float rate, int block) {
        call(effOpen);
        call(effSetSampleRate, 0, 0, nullptr, rate);
        call(effSetBlockSize, 0, block);
        call(effMainsChanged, 0, 1);
    }
};

} // namespace vst2host
} // namespace test
} // namespace kelm
