// The Windows DLLs (build-win32/, build-win64/, made by scripts/build-windows.sh) under
// wine: their exports and imports, our Windows host's checks, output equal to the Linux
// kelm tool, and resources read from the DLL's own module.
#include <cmath>
#include <functional>
#include <map>

#include "tests/windows/WindowsBuild.h"

using namespace kelm::test;

namespace {

using WindowsDll = WindowsBuildTest;

// A document with one WaveConvolver that reads its response from the module's resources.
std::string convolverDocument(const std::string& response) {
    return "<System><Graphs><Graph Name=\"R\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input "
           "Graph=\"System\" Node=\"0\"/></Inputs><Element Type=\"WaveConvolver\" Name=\"room\"><Properties "
           "ImpulseResponses=\"" + response + "\" Location=\"Dll\" DllResourceType=\"WAVE\" MaxIRSize=\"8192\"/>"
           "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element><Output><Node Name=\"out\" "
           "Element=\"room\" Port=\"out\"/></Output></Graph></Graphs><Outputs><Output Graph=\"R\" Node=\"out\"/>"
           "</Outputs></System>";
}

// The settings rendered by the DLL and by kelm render. Parameter indexes: Gain 1,
// Oversampling 3, Bass 4, Treble 5, CPU 8.
struct Setting {
    std::string cpu, oversampling, hostOut;
};

// Everything the tests ask of our Windows host, run in one start of it under wine: a start
// of the emulated 32-bit wine takes a minute. Command 0 runs the host's checks, 1 renders
// every setting (each by a fresh instance), 2 convolves with the probe DLL's own resource,
// 3 asks the probe for a resource it does not have.
struct HostRun {
    CommandResult result;
    std::vector<std::string> outputs;  // of each command, up to its status line
    std::vector<int> statuses;
    std::string renderInput, convolverInput, convolverDocument, convolverOut;
    std::vector<Setting> settings;
    // Kelm Circuit (commands 4 and 5): each document and its render.
    std::vector<std::pair<std::string, std::string>> circuits;
};

std::vector<float> renderSignal() {
    std::vector<float> x(24000);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 220 * i / 48000) + 0.1 * std::sin(2 * M_PI * 3300 * i / 48000));
    return x;
}

const HostRun& hostRun(int width, const std::function<CommandResult(const std::string&)>& wine) {
    static std::map<int, HostRun> runs;
    auto found = runs.find(width);
    if (found != runs.end()) return found->second;
    HostRun& h = runs[width];
    const std::string tag = std::to_string(width);
    h.renderInput = tempPath("win" + tag + "_in.f32");
    writeFloats(h.renderInput, renderSignal());
    h.convolverInput = tempPath("win" + tag + "_conv_in.f32");
    writeFloats(h.convolverInput, noise(6000, 8));
    h.convolverDocument = tempPath("win" + tag + "_conv.xml");
    std::ofstream(h.convolverDocument) << convolverDocument("room-44k1.wav");
    const std::string missing = tempPath("win" + tag + "_missing.xml");
    std::ofstream(missing) << convolverDocument("no-such-room.wav");
    h.convolverOut = tempPath("win" + tag + "_conv_host.f32");

    std::string command = "KelmHost.exe check Kelm.dll + render Kelm.dll " + windowsPath(h.renderInput);
    for (const char* cpu : {"0", "1"})
        for (const char* oversampling : {"0", "0.5", "1"}) {
            h.settings.push_back({cpu, oversampling, tempPath("win" + tag + "_host_" + cpu + "_" + oversampling + ".f32")});
            command += " " + windowsPath(h.settings.back().hostOut) + (h.settings.size() == 1 ? " 1 512" : "") +
                       " 1=0.8 4=0.3 5=0.65 8=" + cpu + " 3=" + oversampling;
        }
    for (const std::string& doc : {h.convolverDocument, missing})
        command += " + probe KelmProbe.dll " + windowsPath(doc) + " " + windowsPath(h.convolverInput) + " " +
                   windowsPath(h.convolverOut) + " 48000 300";
    for (const char* doc : {"examples/fuzz-face.xml", "examples/bassman-tonestack.cir"}) {
        h.circuits.emplace_back(sourcePath(doc), tempPath("win" + tag + "_circuit_" + std::to_string(h.circuits.size()) + ".f32"));
        command += " + circuit KelmCircuit.dll " + windowsPath(h.circuits.back().first) + " " +
                   windowsPath(h.renderInput) + " " + windowsPath(h.circuits.back().second) + " 512";
    }
    h.result = wine(command);
    std::cout << h.result.output;
    std::remove(missing.c_str());
    // Split the output at the host's "command N ended with status S" lines.
    std::istringstream lines(h.result.output);
    std::string line, section;
    while (std::getline(lines, line)) {
        section += line + "\n";
        int index = 0, status = 0;
        if (std::sscanf(line.c_str(), "KelmHost: command %d ended with status %d", &index, &status) == 2) {
            h.outputs.push_back(section);
            h.statuses.push_back(status);
            section.clear();
        }
    }
    return h;
}

} // namespace

TEST_P(WindowsDll, ExportsTheEntryPointsAndImportsOnlySystemDlls) {
    for (const char* file : {"Kelm.dll", "KelmCircuit.dll"})
        EXPECT_EQ((std::vector<std::string>{"VSTPluginMain", "main"}), exportsOf(file)) << file;
}

TEST_P(WindowsDll, OurWindowsHostPassesItsChecks) {
    const HostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(0, h.result.status) << h.result.output;
    ASSERT_EQ(6u, h.statuses.size()) << h.result.output;
    EXPECT_EQ(0, h.statuses[0]) << h.outputs[0];
    EXPECT_NE(std::string::npos, h.outputs[0].find(", 0 failed (" + std::to_string(width()) + "-bit)")) << h.outputs[0];
}

TEST_P(WindowsDll, OutputEqualsTheKelmToolOnLinux) {
    const HostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(6u, h.statuses.size()) << h.result.output;
    ASSERT_EQ(0, h.statuses[1]) << h.outputs[1];
    const std::string wav = tempPath("win_in.wav"), toolOut = tempPath("win_tool.wav");
    writeWav(wav, renderSignal(), 1, 48000);
    // Where this machine runs 32-bit programs only through qemu, the DLL sees qemu's CPU, whose reciprocal estimate (rcpss) is exact where a real one has 12
    // bits. The LU kernels refine that estimate by one Newton step, so their last bits follow
    // the CPU, and the circuit path's Newton iteration, which stops once a step is below
    // 0.5 %, turns them into up to a few 1e-4 of peak. The reference then runs under qemu
    // too, on the same CPU as the DLL; the difference from the native run is reported.
    const bool emulated = this->emulated();
    double worstOfAll = 0;
    for (const Setting& s : h.settings) {
        const std::string set = " --set Gain=0.8 --set Bass=0.3 --set Treble=0.65 --set CPU=" + s.cpu +
                                " --set Oversampling=" + s.oversampling;
        auto render = [&](const std::string& prefix) {
            auto tool = run(prefix + KELM_CLI_PATH + " render --in " + wav + " --out " + toolOut + set + " --block 512");
            EXPECT_EQ(0, tool.status) << tool.output;
            return readWav(toolOut);
        };
        const std::vector<float> y = readFloats(s.hostOut);
        const std::vector<float> reference = render(emulated ? "env -u QEMU_RESERVED_VA qemu-x86_64-static " : "");
        ASSERT_EQ(reference.size(), y.size());
        const double error = relativeError(reference, y);
        std::cout << width() << "-bit DLL, CPU=" << s.cpu << " Oversampling=" << s.oversampling
                  << ": largest difference from kelm render" << (emulated ? " on the same emulated CPU " : " ")
                  << error << " of peak";
        EXPECT_LE(error, 1e-5) << "CPU=" << s.cpu << " Oversampling=" << s.oversampling;
        if (emulated) {
            const double native = relativeError(render(""), y);
            std::cout << ", from the native kelm render " << native << " of peak";
            EXPECT_LE(native, 1e-3) << "CPU=" << s.cpu << " Oversampling=" << s.oversampling;
        }
        std::cout << "\n";
        worstOfAll = std::max(worstOfAll, error);
    }
    RecordProperty("worst_relative_difference", std::to_string(worstOfAll));
    for (const Setting& s : h.settings) std::remove(s.hostOut.c_str());
    for (auto* p : {&wav, &toolOut, &h.renderInput}) std::remove(p->c_str());
}

TEST_P(WindowsDll, WaveConvolverReadsTheDllsOwnResources) {
    const HostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(6u, h.statuses.size()) << h.result.output;
    ASSERT_EQ(0, h.statuses[2]) << h.outputs[2];
    EXPECT_NE(std::string::npos, h.outputs[2].find("probe: ok")) << h.outputs[2];
    EXPECT_EQ(std::string::npos, h.outputs[2].find("also found in the host program")) << h.outputs[2];
    // The 44.1 kHz response is resampled to 48 kHz on both sides.
    const std::string wav = tempPath("win_conv_in.wav"), toolOut = tempPath("win_conv_tool.wav");
    writeWav(wav, readFloats(h.convolverInput), 1, 48000);
    auto tool = run(std::string(KELM_CLI_PATH) + " render --system " + h.convolverDocument + " --in " + wav +
                    " --out " + toolOut + " --block 300");
    ASSERT_EQ(0, tool.status) << tool.output;
    const std::vector<float> reference = readWav(toolOut), y = readFloats(h.convolverOut);
    ASSERT_EQ(reference.size(), y.size());
    const double error = relativeError(reference, y);
    std::cout << width() << "-bit probe DLL: convolution with its own resource differs from kelm render by " << error
              << " of peak\n";
    EXPECT_LE(error, 1e-5);
    // Asked for a resource it does not hold, the probe reports the engine's error.
    EXPECT_NE(0, h.statuses[3]);
    EXPECT_NE(std::string::npos, h.outputs[3].find("Could not locate Resource FileWAVE|no-such-room.wav")) << h.outputs[3];
    for (auto* p : {&wav, &toolOut, &h.convolverInput, &h.convolverDocument, &h.convolverOut}) std::remove(p->c_str());
}

// KelmCircuit.dll given a document's text as a chunk renders what kelm render --system
// renders of the file; the chunk read back plays the same samples in a new instance.
TEST_P(WindowsDll, KelmCircuitChunksRenderAsKelmRender) {
    const HostRun& h = hostRun(width(), [this](const std::string& a) { return wine(a); });
    ASSERT_EQ(6u, h.statuses.size()) << h.result.output;
    const bool emulated = this->emulated();
    const std::string wav = tempPath("win_circuit_in.wav"), toolOut = tempPath("win_circuit_tool.wav");
    writeWav(wav, renderSignal(), 1, 48000);
    for (size_t k = 0; k < h.circuits.size(); ++k) {
        const std::string& doc = h.circuits[k].first;
        SCOPED_TRACE(doc);
        EXPECT_EQ(0, h.statuses[4 + k]) << h.outputs[4 + k];
        EXPECT_NE(std::string::npos, h.outputs[4 + k].find(", 0 failed (" + std::to_string(width()) + "-bit)"))
            << h.outputs[4 + k];
        auto tool = run(std::string(KELM_CLI_PATH) + " render --system " + doc + " --in " + wav + " --out " + toolOut +
                        " --block 512");
        ASSERT_EQ(0, tool.status) << tool.output;
        const std::vector<float> reference = readWav(toolOut), both = readFloats(h.circuits[k].second);
        ASSERT_EQ(2 * reference.size(), both.size());
        std::vector<float> left(reference.size()), right(reference.size());
        for (size_t i = 0; i < reference.size(); ++i) {
            left[i] = both[2 * i];
            right[i] = both[2 * i + 1];
        }
        EXPECT_EQ(left, right);  // a mono input feeds both sides
        const double error = relativeError(reference, left);
        std::cout << width() << "-bit KelmCircuit.dll, " << doc << ": largest difference from kelm render --system "
                  << error << " of peak\n";
        // Under qemu's CPU the devices' Newton iterations end on other last bits (see above).
        EXPECT_LE(error, emulated ? 1e-3 : 1e-5);
        std::remove(h.circuits[k].second.c_str());
    }
    for (auto* p : {&wav, &toolOut}) std::remove(p->c_str());
}

INSTANTIATE_TEST_SUITE_P(Windows64, WindowsDll, ::testing::Values(64));
INSTANTIATE_TEST_SUITE_P(Windows32, WindowsDll, ::testing::Values(32));
