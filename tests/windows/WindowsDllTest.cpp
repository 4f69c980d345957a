// The Windows DLLs (build-win32/, build-win64/, made by scripts/build-windows.sh) under
// wine: their exports and imports, our Windows host's checks, output equal to the Linux
// kelm tool, and resources read from the DLL's own module.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>

#include "tests/TestUtil.h"

using namespace kelm::test;

namespace {

class WindowsDll : public ::testing::TestWithParam<int> {
protected:
    int width() const { return GetParam(); }
    std::string dir() const { return sourcePath("build-win" + std::to_string(width())); }
    std::string objdump() const { return width() == 32 ? "i686-w64-mingw32-objdump" : "x86_64-w64-mingw32-objdump"; }
    // Runs a program of the Windows build under wine, in a prefix of its own.
    CommandResult wine(const std::string& arguments) const {
        const std::string loader = width() == 32 ? "/usr/lib/wine/wine" : "/usr/lib/wine/wine64";
        return run("cd " + dir() + " && WINEDEBUG=-all WINEPREFIX=/tmp/kelm-wine" + std::to_string(width()) + " " +
                   loader + " " + arguments);
    }
    static std::string windowsPath(const std::string& path) { return "Z:" + path; }
};

bool writeFloats(const std::string& path, const std::vector<float>& x) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(x.data(), sizeof(float), x.size(), f) == x.size();
    return std::fclose(f) == 0 && ok;
}

std::vector<float> readFloats(const std::string& path) {
    const std::string bytes = readText(path);
    std::vector<float> x(bytes.size() / sizeof(float));
    std::memcpy(x.data(), bytes.data(), x.size() * sizeof(float));
    return x;
}

// Largest difference relative to the peak of the reference.
double relativeError(const std::vector<float>& reference, const std::vector<float>& y) {
    double peak = 0, worst = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        peak = std::max(peak, std::fabs(static_cast<double>(reference[i])));
        worst = std::max(worst, std::fabs(static_cast<double>(reference[i]) - y[i]));
    }
    return peak > 0 ? worst / peak : worst;
}

} // namespace

TEST_P(WindowsDll, ExportsTheEntryPointsAndImportsOnlySystemDlls) {
    auto r = run(objdump() + " -p " + dir() + "/Kelm.dll");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find(width() == 32 ? "file format pei-i386" : "file format pei-x86-64"));
    std::istringstream lines(r.output);
    std::string line;
    std::vector<std::string> exports;
    std::set<std::string> imports;
    bool inNames = false;
    while (std::getline(lines, line)) {
        if (line.find("[Ordinal/Name Pointer] Table") != std::string::npos) {
            inNames = true;
            continue;
        }
        if (inNames && line.find('[') == std::string::npos) inNames = false;
        if (inNames) exports.push_back(line.substr(line.find(']') + 2));
        const size_t dll = line.find("DLL Name: ");
        if (dll != std::string::npos) {
            std::string name = line.substr(dll + 10);
            std::transform(name.begin(), name.end(), name.begin(), ::tolower);
            imports.insert(name);
        }
    }
    std::sort(exports.begin(), exports.end());
    EXPECT_EQ((std::vector<std::string>{"VSTPluginMain", "main"}), exports) << r.output;
    // No runtime DLL of the compiler (libstdc++, libgcc_s, libwinpthread): only Windows' own.
    const std::set<std::string> system = {"kernel32.dll", "msvcrt.dll", "user32.dll", "gdi32.dll", "shell32.dll",
                                          "advapi32.dll", "ole32.dll", "comctl32.dll", "msimg32.dll"};
    EXPECT_TRUE(imports.count("kernel32.dll"));
    for (const auto& name : imports) EXPECT_TRUE(system.count(name)) << "imports " << name;
}

TEST_P(WindowsDll, OurWindowsHostPassesItsChecks) {
    auto r = wine("KelmHost.exe check Kelm.dll");
    std::cout << r.output;
    EXPECT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find(", 0 failed (" + std::to_string(width()) + "-bit)")) << r.output;
}

TEST_P(WindowsDll, OutputEqualsTheKelmToolOnLinux) {
    std::vector<float> x(24000);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 220 * i / 48000) + 0.1 * std::sin(2 * M_PI * 3300 * i / 48000));
    const std::string wav = tempPath("win_in.wav"), raw = tempPath("win_in.f32");
    const std::string toolOut = tempPath("win_tool.wav");
    writeWav(wav, x, 1, 48000);
    ASSERT_TRUE(writeFloats(raw, x));
    // Every setting in one start of the host (a start of the emulated 32-bit wine takes a
    // minute), each by a fresh instance. Parameter indexes: Gain 1, Oversampling 3, Bass 4,
    // Treble 5, CPU 8.
    struct Setting {
        const char* cpu;
        const char* oversampling;
        std::string hostOut;
    };
    std::vector<Setting> settings;
    std::string command = "KelmHost.exe render Kelm.dll " + windowsPath(raw);
    for (const char* cpu : {"0", "1"})
        for (const char* oversampling : {"0", "0.5", "1"}) {
            settings.push_back({cpu, oversampling, tempPath(std::string("win_host_") + cpu + "_" + oversampling + ".f32")});
            command += " " + windowsPath(settings.back().hostOut) + (settings.size() == 1 ? " 1 512" : "") +
                       " 1=0.8 4=0.3 5=0.65 8=" + cpu + " 3=" + oversampling;
        }
    auto host = wine(command);
    ASSERT_EQ(0, host.status) << host.output;
    // Where this machine runs 32-bit programs only through qemu (wine32-or-skip.sh), the DLL
    // sees qemu's CPU, whose reciprocal estimate (rcpss) is exact where a real one has 12
    // bits. The LU kernels refine that estimate by one Newton step, so their last bits follow
    // the CPU, and the circuit path's Newton iteration, which stops once a step is below
    // 0.5 %, turns them into up to a few 1e-4 of peak. The reference then runs under qemu
    // too, on the same CPU as the DLL; the difference from the native run is reported.
    const bool emulated = width() == 32 && std::getenv("KELM_I386_EMULATED") != nullptr;
    double worstOfAll = 0;
    for (const Setting& s : settings) {
        const std::string set = std::string(" --set Gain=0.8 --set Bass=0.3 --set Treble=0.65 --set CPU=") + s.cpu +
                                " --set Oversampling=" + s.oversampling;
        auto render = [&](const std::string& prefix) {
            auto tool = run(prefix + KELM_CLI_PATH + " render --in " + wav + " --out " + toolOut + set + " --block 512");
            EXPECT_EQ(0, tool.status) << tool.output;
            return readWav(toolOut);
        };
        const std::vector<float> y = readFloats(s.hostOut);
        std::remove(s.hostOut.c_str());
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
    for (auto* p : {&wav, &raw, &toolOut}) std::remove(p->c_str());
}

TEST_P(WindowsDll, WaveConvolverReadsTheDllsOwnResources) {
    auto documentWith = [](const std::string& response) {
        return "<System><Graphs><Graph Name=\"R\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input "
               "Graph=\"System\" Node=\"0\"/></Inputs><Element Type=\"WaveConvolver\" Name=\"room\"><Properties "
               "ImpulseResponses=\"" + response + "\" Location=\"Dll\" DllResourceType=\"WAVE\" MaxIRSize=\"8192\"/>"
               "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element><Output><Node Name=\"out\" "
               "Element=\"room\" Port=\"out\"/></Output></Graph></Graphs><Outputs><Output Graph=\"R\" Node=\"out\"/>"
               "</Outputs></System>";
    };
    const std::string doc = tempPath("win_conv.xml"), missing = tempPath("win_missing.xml");
    std::ofstream(doc) << documentWith("room-44k1.wav");
    std::ofstream(missing) << documentWith("no-such-room.wav");
    const std::vector<float> x = noise(6000, 8);
    const std::string wav = tempPath("win_conv_in.wav"), raw = tempPath("win_conv_in.f32");
    const std::string toolOut = tempPath("win_conv_tool.wav"), hostOut = tempPath("win_conv_host.f32");
    writeWav(wav, x, 1, 48000);
    ASSERT_TRUE(writeFloats(raw, x));
    // The 44.1 kHz response is resampled to 48 kHz on both sides.
    auto tool = run(std::string(KELM_CLI_PATH) + " render --system " + doc + " --in " + wav + " --out " + toolOut + " --block 300");
    ASSERT_EQ(0, tool.status) << tool.output;
    auto host = wine("KelmHost.exe probe KelmProbe.dll " + windowsPath(doc) + " " + windowsPath(raw) + " " +
                     windowsPath(hostOut) + " 48000 300");
    ASSERT_EQ(0, host.status) << host.output;
    EXPECT_NE(std::string::npos, host.output.find("probe: ok")) << host.output;
    EXPECT_EQ(std::string::npos, host.output.find("also found in the host program")) << host.output;
    const std::vector<float> reference = readWav(toolOut), y = readFloats(hostOut);
    ASSERT_EQ(reference.size(), y.size());
    const double error = relativeError(reference, y);
    std::cout << width() << "-bit probe DLL: convolution with its own resource differs from kelm render by " << error
              << " of peak\n";
    EXPECT_LE(error, 1e-5);
    auto absent = wine("KelmHost.exe probe KelmProbe.dll " + windowsPath(missing) + " " + windowsPath(raw) + " " +
                       windowsPath(hostOut) + " 48000 300");
    EXPECT_NE(0, absent.status);
    EXPECT_NE(std::string::npos, absent.output.find("Could not locate Resource FileWAVE|no-such-room.wav")) << absent.output;
    for (auto* p : {&doc, &missing, &wav, &raw, &toolOut, &hostOut}) std::remove(p->c_str());
}

INSTANTIATE_TEST_SUITE_P(Windows64, WindowsDll, ::testing::Values(64));
INSTANTIATE_TEST_SUITE_P(Windows32, WindowsDll, ::testing::Values(32));
