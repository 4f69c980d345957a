// Our CLAP host as a Windows program (KelmClapHost.exe beside Kelm.clap), for the tests to
// run under wine, all in one start (a start of the emulated 32-bit wine takes a minute):
//   KelmClapHost.exe Kelm.clap IN.f32 OUT_PREFIX [CIRCUIT_STATE]
// IN.f32 holds interleaved stereo floats at 48 kHz. It lists the plug-ins and their
// parameters, renders IN with parameters set by events before activation (OUT_PREFIX
// events.f32) and again with a change in the middle of block 3 (midblock.f32), and moves
// the state of one instance into another. Given a state of Kelm Circuit, it loads it and
// renders IN in blocks of 512 (circuit.f32), and moves that state on too. Exit status 0
// when every check passed.
//   KelmClapHost.exe gui Kelm.clap SECONDS
// opens the plug-in's window in a window of ours at the screen's top left for that long
// (tests/windows/editor/clap.sh drives it), as a host without timer-support (the window
// idles itself with a system timer, through our message loop), then
// reports the window's size, the Gain and CPU values and the events the plug-in sent.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/clap/ClapTestHost.h"
#include "tests/windows/FloatFiles.h"

using namespace kelm::test;

namespace {

int failures = 0;

void check(bool ok, const std::string& what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAIL", what.c_str());
    if (!ok) ++failures;
}

bool writeStereo(const std::string& path, const std::vector<float>& l, const std::vector<float>& r) {
    std::vector<float> frames;
    for (size_t i = 0; i < l.size(); ++i) frames.insert(frames.end(), {l[i], r[i]});
    return writeFloats(path, frames);
}

// Gain 0.8, Bass 0.3, Treble 0.65, CPU 0 (the circuit path), Oversampling 4x.
const std::vector<std::pair<clap_id, double>> kSettings = {{1, 0.8}, {4, 0.3}, {5, 0.65}, {8, 0.0}, {3, 2.0}};

int gui(const char* path, double seconds) {
    ClapModule module(path);
    if (!module.ok()) {
        std::printf("cannot load %s: %s\n", path, module.error.c_str());
        return 1;
    }
    ClapInstance p(module, "kelm.preamp", false);
    if (!p.ok() || !p.activate(48000, 256, 256)) return 1;
    WNDCLASSA wc = {};
    wc.lpfnWndProc = DefWindowProcA;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.lpszClassName = "KelmClapHostWindow";
    RegisterClassA(&wc);
    HWND parent = CreateWindowA("KelmClapHostWindow", "Kelm CLAP host", WS_POPUP | WS_VISIBLE, 0, 0, 730, 340, nullptr,
                                nullptr, wc.hInstance, nullptr);
    uint32_t width = 0, height = 0;
    const bool opened = p.openWindow(parent, width, height);
    HWND child = GetWindow(parent, GW_CHILD);
    std::printf("rect %ux%u opened %d child %d timers %d\n", width, height, opened ? 1 : 0, child ? 1 : 0,
                static_cast<int>(p.timers.size()));
    std::fflush(stdout);
    const DWORD end = GetTickCount() + static_cast<DWORD>(seconds * 1000);
    while (GetTickCount() < end) {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&msg);
            DispatchMessageA(&msg);
        }
        Sleep(20);
    }
    p.closeWindow();
    const bool childGone = GetWindow(parent, GW_CHILD) == nullptr;
    std::vector<float> silence(256, 0.0f), l, r;
    p.render(silence, silence, l, r, 256);  // the window's edits reach the host in a block
    int begun = 0, ended = 0, values = 0;
    for (const ClapOutEvent& e : p.sent) {
        begun += e.type == kEventParamGestureBegin;
        ended += e.type == kEventParamGestureEnd;
        values += e.type == kEventParamValue;
    }
    std::printf("gain %.4f cpu %.4f values %d begin %d end %d closed %d faults %d\n", p.value(1), p.value(8), values,
                begun, ended, childGone ? 1 : 0, static_cast<int>(p.faults.size()));
    DestroyWindow(parent);
    return opened && child && childGone && p.faults.empty() ? 0 : 1;
}

// Kelm Circuit given the state in `path`: its render, and the state moved to another instance.
void circuit(const ClapModule& module, const char* path, const std::vector<float>& left,
             const std::vector<float>& right, const std::string& prefix) {
    std::string state;
    if (FILE* f = std::fopen(path, "rb")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) state.append(buffer, n);
        std::fclose(f);
    }
    check(!state.empty(), "read the circuit state");
    ClapInstance a(module, "kelm.circuit"), b(module, "kelm.circuit");
    check(a.ok() && b.ok(), "instances of kelm.circuit");
    if (!a.ok() || !b.ok()) return;
    check(a.load(state), "load the circuit state");
    check(!a.rescans.empty() && a.rescans.back() == (kRescanInfo | kRescanText), "the host told of the new names");
    std::printf("circuit slot 0|%s\n", a.info(0).name);
    std::string saved;
    check(a.save(saved) && b.load(saved), "circuit state into another instance");
    std::vector<float> la, ra, lb, rb;
    check(a.activate(48000, 512, 512) && b.activate(48000, 512, 512), "activate both");
    check(a.render(left, right, la, ra, 512) == kProcessContinue, "render the circuit");
    b.render(left, right, lb, rb, 512);
    check(writeStereo(prefix + "circuit.f32", la, ra), "write circuit.f32");
    check(la == lb && ra == rb, "the other instance gives the same samples");
    check(a.faults.empty() && b.faults.empty(), "no host faults");
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "gui") return gui(argv[2], std::atof(argv[3]));
    if (argc != 4 && argc != 5) {
        std::printf("usage: KelmClapHost.exe Kelm.clap IN.f32 OUT_PREFIX [CIRCUIT_STATE] | gui Kelm.clap SECONDS\n");
        return 2;
    }
    std::printf("KelmClapHost (%d-bit)\n", static_cast<int>(sizeof(void*) * 8));
    ClapModule module(argv[1]);
    if (!module.ok()) {
        std::printf("FAIL: cannot load %s: %s\n", argv[1], module.error.c_str());
        return 1;
    }
    std::vector<float> input, left, right;
    if (!readFloats(argv[2], input) || input.size() < 2) {
        std::printf("FAIL: cannot read %s\n", argv[2]);
        return 1;
    }
    for (size_t i = 0; i + 1 < input.size(); i += 2) {
        left.push_back(input[i]);
        right.push_back(input[i + 1]);
    }
    const std::string prefix = argv[3];

    for (uint32_t k = 0; k < module.count(); ++k) {
        const clap_plugin_descriptor* d = module.descriptor(k);
        std::printf("plugin %s|%s|%s|%s\n", d->id, d->name, d->vendor, d->version_text);
        ClapInstance p(module, d->id);
        check(p.ok(), std::string("instance of ") + d->id);
        if (!p.ok()) continue;
        for (uint32_t i = 0; i < p.paramCount(); ++i) {
            const clap_param_info info = p.info(i);
            std::printf("param %u|%s|%g|%g|%g|%s|%u\n", info.id, info.name, info.min_value, info.max_value,
                        info.default_value, p.text(info.id, info.default_value).c_str(), info.flags);
        }
    }

    std::vector<float> outL, outR;
    {
        ClapInstance p(module, "kelm.preamp");
        p.flush(kSettings);
        check(p.activate(48000, 512, 512), "activate");
        check(p.render(left, right, outL, outR, 512) == kProcessContinue, "render with events before activation");
        check(writeStereo(prefix + "events.f32", outL, outR), "write events.f32");
        check(p.faults.empty(), "no host faults");
    }
    {
        ClapInstance p(module, "kelm.preamp");
        p.flush(kSettings);
        check(p.activate(48000, 512, 512), "activate");
        check(p.render(left, right, outL, outR, 512, {{3 * 512 + 200, 1, 0.3}}) == kProcessContinue,
              "render with a change at frame 200 of block 3");
        check(writeStereo(prefix + "midblock.f32", outL, outR), "write midblock.f32");
    }
    {
        ClapInstance a(module, "kelm.preamp"), b(module, "kelm.preamp");
        a.flush(kSettings);
        std::string saved, again;
        check(a.save(saved), "save");
        check(b.load(saved), "load into another instance");
        bool same = true;
        for (uint32_t i = 0; i < a.paramCount(); ++i) same = same && a.value(i) == b.value(i);
        check(same, "the values came along");
        check(b.save(again) && again == saved, "saved again, the same bytes");
        std::vector<float> la, ra, lb, rb;
        a.activate(48000, 256, 256);
        b.activate(48000, 256, 256);
        a.render(left, right, la, ra, 256);
        b.render(left, right, lb, rb, 256);
        check(la == lb && ra == rb, "the same samples");
        check(!b.load(std::string()), "an empty state is refused");
    }
    if (argc == 5) circuit(module, argv[4], left, right, prefix);
    std::printf("KelmClapHost: %d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
