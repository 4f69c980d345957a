// Our own VST 2 host for Windows: loads Kelm.dll exactly as a Windows host does
// (LoadLibraryW, GetProcAddress("VSTPluginMain"), the dispatcher, processReplacing) and
// either runs the checks a host relies on or renders a signal for comparison on Linux.
//
//   KelmHost check  Kelm.dll
//   KelmHost render Kelm.dll IN.f32 OUT.f32 CHANNELS BLOCK [INDEX=VALUE ...] [OUT2.f32 [INDEX=VALUE ...]] ...
//   KelmHost probe  KelmProbe.dll DOCUMENT.xml IN.f32 OUT.f32 RATE BLOCK
//   KelmHost circuit KelmCircuit.dll DOCUMENT IN.f32 OUT.f32 BLOCK
//
// circuit: Kelm Circuit's identity, then the document's text as a chunk set while
// suspended (as hosts restore sessions), a render of the mono input, and the chunk read back
// (effGetChunk) given to a new instance, which must render the same samples.
//
// .f32 files are raw little-endian 32-bit floats, interleaved; the rendered output has
// two channels, at 48000 Hz. Each further output name starts another render of the same
// input by a fresh instance with the values that follow it (one program start for several
// settings: under an emulated 32-bit wine a start takes a minute). The exit status is the number of failed checks (or 1 for
// a failed command).
#include <windows.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/plugin/Vst2Plugin.h"
#include "tests/windows/FloatFiles.h"

using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::vst2host;

static Module* loaded = nullptr;

namespace kelm {
namespace test {
namespace vst2host {
Module& module() { return *loaded; }
} // namespace vst2host
} // namespace test
} // namespace kelm

static_assert(sizeof(AEffect) == (sizeof(void*) == 8 ? 192 : 144), "AEffect layout of the VST 2 interface");

namespace {

int failures = 0;
int checks = 0;

void check(bool ok, const std::string& what) {
    ++checks;
    if (!ok) {
        ++failures;
        std::printf("FAIL: %s\n", what.c_str());
    }
}

void checkIdentity() {
    check(module().entry != nullptr, "VSTPluginMain is exported");
    check(module().mainEntry != nullptr, "main is exported");
    if (!module().entry || !module().mainEntry) return;
    check(module().entry(silentHost) == nullptr, "a host without a version gets no effect");
    check(module().mainEntry(reinterpret_cast<AudioMasterCallback>(static_cast<uintptr_t>(1))) == nullptr,
          "main started as a program creates nothing");
    Plugin p;
    check(p.e != nullptr, "VSTPluginMain creates the effect");
    if (!p.e) return;
    check(p.e->magic == kEffectMagic, "magic");
    check(p.e->uniqueID == 0x71387966, "unique id");
    check(p.e->numParams == 9 && p.e->numPrograms == 1, "nine parameters, one program");
    check(p.e->numInputs == 2 && p.e->numOutputs == 2, "two inputs, two outputs");
    check((p.e->flags & effFlagsCanReplacing) && !(p.e->flags & effFlagsProgramChunks), "flags");
    check(p.e->process != p.e->processReplacing && p.e->processReplacing, "processReplacing");
    const char* names[] = {"Input", "Gain", "Vol", "Oversamp", "Bass", "Treble", "EQ_Posit", "Stereo", "CPU"};
    for (int i = 0; i < 9; ++i)
        check(p.text(effGetParamName, i) == names[i], "parameter name " + std::to_string(i) + ": " + p.text(effGetParamName, i));
    check(p.text(effGetParamName, 9).empty(), "no name past the last parameter");
    check(p.text(effGetVendorString) == "Tallowbridge Labs", "vendor");
    check(p.text(effGetProductString) == "Kelm", "product");
    check(p.call(effGetVendorVersion) == 1080, "vendor version");
    check(p.call(effGetPlugCategory) == kPlugCategEffect, "category");
    check(p.call(effGetVstVersion) == 2400, "VST version");
    char can[] = "2in2out", midi[] = "receiveVstMidiEvent";
    check(p.call(effCanDo, 0, 0, can) == 1 && p.call(effCanDo, 0, 0, midi) == -1, "canDo");
    p.e->setParameter(p.e, 3, 1.0f);
    check(p.text(effGetParamDisplay, 3) == "4x", "Oversampling 1 reads 4x");
    p.e->setParameter(p.e, 3, 0.5f);
    check(p.text(effGetParamDisplay, 3) == "2x", "Oversampling 0.5 reads 2x");
    check(p.text(effGetParamLabel, 0) == "dB", "Input label");
    for (int i = 0; i < 9; ++i) check(p.text(effGetParamDisplay, i).size() <= 8, "display text within 8 characters");
}

void checkRoundTrips() {
    Plugin p;
    for (int i = 0; i < 9; ++i) {
        if (i == 3) continue;  // Oversampling takes only its three positions
        p.e->setParameter(p.e, i, 0.25f + 0.05f * i);
        check(p.e->getParameter(p.e, i) == 0.25f + 0.05f * i, "parameter " + std::to_string(i) + " round trip");
    }
    const float positions[][2] = {{0.1f, 0.0f}, {0.3f, 0.5f}, {0.6f, 0.5f}, {0.8f, 1.0f}, {-1.0f, 0.0f}, {7.0f, 1.0f}};
    for (auto& v : positions) {
        p.e->setParameter(p.e, 3, v[0]);
        check(p.e->getParameter(p.e, 3) == v[1], "Oversampling " + std::to_string(v[0]) + " lands on " + std::to_string(v[1]));
    }
    p.e->setParameter(p.e, 12, 0.7f);
    check(p.e->getParameter(p.e, 12) == 0.0f, "an index past the last parameter is ignored");
}

void checkResumeAndSuspend() {
    // resume without sample rate or block size: 48000 Hz and 480 frames.
    Plugin p;
    p.call(effOpen);
    p.call(effMainsChanged, 0, 1);
    std::vector<float> l(480), r(480), ol(480, 7.0f), orr(480, 7.0f);
    for (int i = 0; i < 480; ++i) l[i] = r[i] = 0.2f * std::sin(0.05f * i);
    float* in[2] = {l.data(), r.data()};
    float* out[2] = {ol.data(), orr.data()};
    p.e->processReplacing(p.e, in, out, 480);
    bool finite = true, sounds = false;
    for (int i = 0; i < 480; ++i) {
        finite &= std::isfinite(ol[i]) && std::isfinite(orr[i]);
        sounds |= ol[i] != 0.0f;
    }
    check(finite && sounds, "a block after resume with the default rate and size sounds");
    // After suspend a block is refused: no exception reaches the host, the outputs are silence.
    p.call(effMainsChanged, 0, 0);
    std::fill(ol.begin(), ol.end(), 7.0f);
    std::fill(orr.begin(), orr.end(), 7.0f);
    p.e->processReplacing(p.e, in, out, 480);
    bool silent = true;
    for (int i = 0; i < 480; ++i) silent &= ol[i] == 0.0f && orr[i] == 0.0f;
    check(silent, "a refused block after suspend leaves silence");
    p.call(effMainsChanged, 0, 1);
    p.e->processReplacing(p.e, in, out, 480);
    check(ol[100] != 0.0f, "a resumed effect sounds again");
    // A block size below 1 is an error of the engine: it stops at the DLL's border, and
    // the effect runs on once given a good size.
    p.call(effMainsChanged, 0, 0);
    p.call(effSetBlockSize, 0, 0);
    p.call(effSetBlockSize, 0, 480);
    p.call(effMainsChanged, 0, 1);
    std::fill(ol.begin(), ol.end(), 0.0f);
    p.e->processReplacing(p.e, in, out, 480);
    check(ol[100] != 0.0f && std::isfinite(ol[100]), "the effect runs on after a refused block size");
}

void checkChannels() {
    const std::vector<float> x = testSignal(9600);
    const std::vector<float> mono = render(x, 1, 480, [] { return 480; }, {});
    double energy = 0;
    bool same = true;
    for (size_t i = 0; i < mono.size(); i += 2) {
        same &= std::fabs(mono[i] - mono[i + 1]) <= 1e-6;
        energy += mono[i] * mono[i];
    }
    check(same && energy > 1.0, "one input gives two outputs alike, energy " + std::to_string(energy));
    std::vector<float> stereoIn(x.size() * 2);
    for (size_t i = 0; i < x.size(); ++i) stereoIn[2 * i] = stereoIn[2 * i + 1] = x[i];
    pinAnswer = 1;
    const std::vector<float> unconnected = render(stereoIn, 2, 480, [] { return 480; }, {});
    pinAnswer = 0;
    check(unconnected == mono, "a second input the host reports unconnected is not read");
    std::vector<float> different = stereoIn;
    for (size_t i = 0; i < x.size(); ++i) different[2 * i + 1] = 0.5f * x[(i * 7) % x.size()];
    const std::vector<float> joined = render(different, 2, 480, [] { return 480; }, {{7, 1.0f}});
    bool equal = true;
    for (size_t i = 0; i < joined.size(); i += 2) equal &= joined[i] == joined[i + 1];
    check(equal, "Stereo at 1: the right output is the left one");
    const std::vector<float> apart = render(different, 2, 480, [] { return 480; }, {{7, 0.0f}});
    bool differ = false;
    for (size_t i = 0; i < apart.size(); i += 2) differ |= apart[i] != apart[i + 1];
    check(differ, "Stereo at 0: the channels are processed apart");
}

void checkBlockSizes() {
    const std::vector<float> x = testSignal(48000);
    const std::vector<std::pair<int, float>> params = {{3, 1.0f}, {8, 0.0f}};
    const std::vector<float> fixed = render(x, 1, 4096, [] { return 4096; }, params);
    std::mt19937 rng(5);
    std::uniform_int_distribution<int> size(1, 4096);
    const std::vector<float> varying = render(x, 1, 4096, [&] { return size(rng); }, params);
    check(fixed == varying, "blocks of varying size give the same output");
}

int checkCommand(int, char** argv) {
    Module m(argv[2]);
    loaded = &m;
    if (!m.handle) {
        std::printf("FAIL: LoadLibrary(%s): error %lu\n", argv[2], GetLastError());
        return 1;
    }
    checkIdentity();
    if (m.entry) {
        checkRoundTrips();
        checkResumeAndSuspend();
        checkChannels();
        checkBlockSizes();
    }
    std::printf("KelmHost: %d checks, %d failed (%d-bit)\n", checks, failures, static_cast<int>(sizeof(void*) * 8));
    return failures;
}

int renderCommand(int argc, char** argv) {
    if (argc < 7) return 1;
    Module m(argv[2]);
    loaded = &m;
    if (!m.entry) {
        std::printf("cannot load %s\n", argv[2]);
        return 1;
    }
    std::vector<float> x;
    const int channels = std::atoi(argv[5]), block = std::atoi(argv[6]);
    if (!readFloats(argv[3], x) || channels < 1 || channels > 2 || block < 1) return 1;
    const char* output = argv[4];
    std::vector<std::pair<int, float>> params;
    for (int i = 7; i <= argc; ++i) {
        const char* eq = i < argc ? std::strchr(argv[i], '=') : nullptr;
        if (eq) {
            params.push_back({std::atoi(argv[i]), static_cast<float>(std::atof(eq + 1))});
            continue;
        }
        const std::vector<float> y = render(x, channels, block, [&] { return block; }, params);
        if (!writeFloats(output, y)) return 1;
        if (i < argc) output = argv[i];
        params.clear();
    }
    return 0;
}

// Reads a whole file as bytes; false when it cannot be read.
bool readBytes(const char* path, std::string& text) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
    return true;
}

// Kelm Circuit from a chunk, as a host restores a session: suspended, the chunk, the
// settings, resume; then the mono input in blocks. Returns the two outputs interleaved.
std::vector<float> renderChunk(const std::string& chunk, const std::vector<float>& x, int block, std::string* readBack) {
    Plugin p;
    check(p.restore(chunk, 48000, block), "the chunk is taken");
    std::vector<float> l(block), ol(block), orr(block), out;
    for (size_t at = 0; at < x.size(); at += block) {
        const int n = static_cast<int>(std::min<size_t>(block, x.size() - at));
        std::copy(x.begin() + at, x.begin() + at + n, l.begin());
        float* in[2] = {l.data(), nullptr};
        float* o[2] = {ol.data(), orr.data()};
        p.e->processReplacing(p.e, in, o, n);
        for (int i = 0; i < n; ++i) {
            out.push_back(ol[i]);
            out.push_back(orr[i]);
        }
    }
    if (readBack) {
        *readBack = p.chunk();
        check(!readBack->empty(), "effGetChunk gives the state");
    }
    return out;
}

int circuitCommand(int, char** argv) {
    Module m(argv[2]);
    loaded = &m;
    if (!m.entry) {
        std::printf("FAIL: cannot load %s\n", argv[2]);
        return 1;
    }
    {
        Plugin p;
        check(p.e != nullptr && p.e->magic == kEffectMagic, "Kelm Circuit is created");
        if (!p.e) return failures;
        check(p.e->uniqueID == 0x6b636972, "unique id 'kcir'");
        check(p.e->numParams == 20 && p.e->numInputs == 2 && p.e->numOutputs == 2, "20 parameters, 2 in, 2 out");
        check((p.e->flags & effFlagsProgramChunks) != 0, "programs are chunks");
        check(p.text(effGetEffectName) == "Kelm Circuit", "name: " + p.text(effGetEffectName));
        check(p.call(effSetChunk, 0, 0, const_cast<char*>("")) == 0, "an empty chunk is refused");
        const char binary[] = {'\x89', 'P', 'N', 'G', '\0', '\0', '\x1a'};
        check(p.call(effSetChunk, 0, sizeof binary, const_cast<char*>(binary)) == 0, "binary bytes are refused");
    }
    std::string document, readBack;
    std::vector<float> x;
    const int block = std::atoi(argv[6]);
    if (!readBytes(argv[3], document) || !readFloats(argv[4], x) || block < 1) return 1;
    const std::vector<float> y = renderChunk(document, x, block, &readBack);
    const std::vector<float> again = renderChunk(readBack, x, block, nullptr);
    check(again == y, "the chunk read back renders the same samples in a new instance");
    if (!writeFloats(argv[5], y)) return 1;
    std::printf("KelmHost: Kelm Circuit, %d checks, %d failed (%d-bit)\n", checks, failures,
                static_cast<int>(sizeof(void*) * 8));
    return failures;
}

// The probe DLL runs a document with the engine inside a module of its own.
typedef int (*ProbeRender)(const char* document, const float* in, float* out, int frames, float rate, int block,
                           char* error, int errorSize);

int probeCommand(int argc, char** argv) {
    if (argc < 8) return 1;
    HMODULE probe = LoadLibraryA(argv[2]);
    ProbeRender run = probe ? reinterpret_cast<ProbeRender>(reinterpret_cast<void*>(GetProcAddress(probe, "kelmProbeRender"))) : nullptr;
    if (!run) {
        std::printf("cannot load %s\n", argv[2]);
        return 1;
    }
    std::vector<float> x;
    FILE* f = std::fopen(argv[3], "rb");
    if (!f) return 1;
    std::string text;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
    if (!readFloats(argv[4], x)) return 1;
    std::vector<float> y(x.size());
    char error[512] = {0};
    const int status = run(text.c_str(), x.data(), y.data(), static_cast<int>(x.size()),
                           static_cast<float>(std::atof(argv[6])), std::atoi(argv[7]), error, sizeof error);
    // The resources belong to the probe DLL, not to this program.
    const bool inHost = FindResourceW(GetModuleHandleW(nullptr), L"ROOM-44K1.WAV", L"WAVE") != nullptr;
    std::printf("probe: %s%s\n", status == 0 ? "ok" : error, inHost ? " (resource also found in the host program)" : "");
    FreeLibrary(probe);
    return status == 0 && writeFloats(argv[5], y) ? 0 : 1;
}

// Runs one command: argv[1] names it.
int runCommand(int argc, char** argv) {
    struct Command {
        const char* name;
        int arguments;
        int (*run)(int, char**);
    };
    const Command commands[] = {{"check", 3, checkCommand},
                                {"render", 7, renderCommand},
                                {"probe", 8, probeCommand},
                                {"circuit", 7, circuitCommand}};
    for (const Command& c : commands)
        if (argc >= c.arguments && std::strcmp(argv[1], c.name) == 0) return c.run(argc, argv);
    std::printf("usage: KelmHost COMMAND [+ COMMAND...], a COMMAND being check DLL | render DLL IN OUT CHANNELS "
                "BLOCK [INDEX=VALUE...] | probe PROBE.dll DOC.xml IN OUT RATE BLOCK | circuit CIRCUIT.dll DOC IN OUT "
                "BLOCK\n");
    return 1;
}

} // namespace

// Commands separated by "+" run one after another in this one process (a start of wine
// under emulation takes a minute), each followed by a line with its status. The exit
// status is that of a single command, or 0 when several ran.
int main(int argc, char** argv) {
    std::vector<char*> segment;
    int index = 0, status = 0;
    for (int i = 1; i <= argc; ++i) {
        if (i < argc && std::strcmp(argv[i], "+") != 0) {
            segment.push_back(argv[i]);
            continue;
        }
        segment.insert(segment.begin(), argv[0]);
        segment.push_back(nullptr);
        status = runCommand(static_cast<int>(segment.size()) - 1, segment.data());
        std::printf("KelmHost: command %d ended with status %d\n", index++, status);
        std::fflush(stdout);
        segment.clear();
    }
    return index == 1 ? status : 0;
}
