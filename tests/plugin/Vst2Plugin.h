#pragma once
// The plug-in as a host sees it: the built module loaded as a host loads it (dlopen, or
// LoadLibrary in our Windows host, tests/windows/host/KelmHost.cpp), its entry points, an
// instance driven through the dispatcher, and renders through fresh instances.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>

#include "tests/TestUtil.h"
#endif

#include "plugin/vst2/aeffect.h"

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

// An edit the host heard from the plug-in: audioMasterBeginEdit, Automate or EndEdit.
struct HostCall {
    VstInt32 opcode;
    VstInt32 index;
    float value;
};
inline std::mutex callsLock;
inline std::vector<HostCall> calls;

// A host that records the edits it hears, from any thread.
inline VstIntPtr KELM_VSTCALLBACK recordingHost(AEffect*, VstInt32 opcode, VstInt32 index, VstIntPtr, void*, float opt) {
    if (opcode == audioMasterVersion) return 2400;
    if (opcode == audioMasterAutomate || opcode == audioMasterBeginEdit || opcode == audioMasterEndEdit) {
        std::lock_guard<std::mutex> g(callsLock);
        calls.push_back({opcode, index, opt});
    }
    return 0;
}

// The edits heard since the last call.
inline std::vector<HostCall> takeCalls() {
    std::lock_guard<std::mutex> g(callsLock);
    std::vector<HostCall> out;
    out.swap(calls);
    return out;
}

inline VstIntPtr KELM_VSTCALLBACK silentHost(AEffect*, VstInt32, VstInt32, VstIntPtr, void*, float) { return 0; }

typedef AEffect*(KELM_VSTCALLBACK* Entry)(AudioMasterCallback);

struct Module {
    Entry entry = nullptr;
    Entry mainEntry = nullptr;
#ifdef _WIN32
    HMODULE handle = nullptr;
    explicit Module(const char* path) {
        handle = LoadLibraryA(path);
        if (!handle) return;
        entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(handle, "VSTPluginMain")));
        mainEntry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(handle, "main")));
    }
    ~Module() {
        if (handle) FreeLibrary(handle);
    }
#else
    void* handle = nullptr;
    explicit Module(const char* path) {
        handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!handle) return;
        entry = reinterpret_cast<Entry>(dlsym(handle, "VSTPluginMain"));
        mainEntry = reinterpret_cast<Entry>(dlsym(handle, "main"));
    }
#endif
};

// The plug-in module the instances come from: on Linux the built one, loaded once for the
// whole suite, as a host keeps a module; our Windows host defines its own.
#ifdef _WIN32
Module& module();
#else
inline Module& module() {
    static Module m(KELM_VST2_PATH);
    return m;
}
#endif

// An instance from the module's VSTPluginMain, or from another plug-in's entry.
struct Plugin {
    AEffect* e;
    explicit Plugin(AudioMasterCallback cb = hostCallback, Entry entry = nullptr) {
        if (!entry) entry = module().entry;
        e = entry ? entry(cb) : nullptr;
    }
    ~Plugin() {
        if (e) e->dispatcher(e, effClose, 0, 0, nullptr, 0);
    }
    VstIntPtr call(VstInt32 op, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr, float opt = 0) {
        return e->dispatcher(e, op, index, value, ptr, opt);
    }
    std::string text(VstInt32 op, VstInt32 index = 0) {
        char buf[256];
        std::memset(buf, 'X', sizeof buf);
        buf[255] = 0;
        call(op, index, 0, buf);
        return buf;
    }
    void start(float rate, int block) {
        call(effOpen);
        call(effSetSampleRate, 0, 0, nullptr, rate);
        call(effSetBlockSize, 0, block);
        call(effMainsChanged, 0, 1);
    }
    // As hosts restore a session: the chunk while suspended, then the settings, then resume.
    // Whether the chunk was taken.
    bool restore(const std::string& chunk, float rate, int block) {
        call(effOpen);
        call(effMainsChanged, 0, 0);
        const bool taken = call(effSetChunk, 0, static_cast<VstIntPtr>(chunk.size()), const_cast<char*>(chunk.data())) == 1;
        call(effSetSampleRate, 0, 0, nullptr, rate);
        call(effSetBlockSize, 0, block);
        call(effMainsChanged, 0, 1);
        return taken;
    }
    std::string chunk() {
        void* data = nullptr;
        const VstIntPtr size = call(effGetChunk, 0, 0, &data);
        return std::string(static_cast<const char*>(data), static_cast<size_t>(size));
    }
    // Runs x on both inputs in blocks of next() frames, before(frame) called ahead of each;
    // the two outputs interleaved.
    template <typename NextBlock, typename Before>
    std::vector<float> play(const std::vector<float>& x, NextBlock next, Before before) {
        std::vector<float> out, l, r, ol, orr;
        out.reserve(2 * x.size());
        for (size_t at = 0; at < x.size();) {
            const int n = std::min<int>(next(), static_cast<int>(x.size() - at));
            before(at);
            l.assign(x.begin() + at, x.begin() + at + n);
            r = l;
            ol.assign(n, 0.0f);
            orr.assign(n, 0.0f);
            float* in[2] = {l.data(), r.data()};
            float* o[2] = {ol.data(), orr.data()};
            e->processReplacing(e, in, o, n);
            for (int i = 0; i < n; ++i) out.insert(out.end(), {ol[i], orr[i]});
            at += n;
        }
        return out;
    }
};

// Renders x (interleaved, `channels` of them; one channel feeds the left input alone, the
// right one given no buffer) through a fresh plug-in in blocks whose sizes come from `next`;
// returns two interleaved output channels.
template <typename NextBlock>
std::vector<float> render(const std::vector<float>& x, int channels, int maxBlock, NextBlock next,
                          const std::vector<std::pair<int, float>>& params = {}) {
    Plugin p;
    for (auto& kv : params) p.e->setParameter(p.e, kv.first, kv.second);
    p.start(48000, maxBlock);
    const size_t frames = x.size() / channels;
    std::vector<float> l(maxBlock), r(maxBlock), ol(maxBlock), orr(maxBlock), out;
    out.reserve(frames * 2);
    for (size_t at = 0; at < frames;) {
        const int n = static_cast<int>(std::min<size_t>(static_cast<size_t>(next()), frames - at));
        for (int i = 0; i < n; ++i) {
            l[i] = x[(at + i) * channels];
            r[i] = x[(at + i) * channels + channels - 1];
        }
        float* in[2] = {l.data(), channels == 1 ? nullptr : r.data()};
        float* o[2] = {ol.data(), orr.data()};
        p.e->processReplacing(p.e, in, o, n);
        for (int i = 0; i < n; ++i) {
            out.push_back(ol[i]);
            out.push_back(orr[i]);
        }
        at += n;
    }
    return out;
}

// 220 Hz and 3.3 kHz at 48 kHz.
inline std::vector<float> testSignal(size_t n) {
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i)
        x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 220 * i / 48000) + 0.1 * std::sin(2 * M_PI * 3300 * i / 48000));
    return x;
}

} // namespace vst2host
} // namespace test
} // namespace kelm
