#pragma once
// What the tests of the Windows builds (build-win32/, build-win64/, made by
// scripts/build-windows.sh) share: the build's folder, its programs run under wine, a
// module's exports and imports as objdump lists them.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestUtil.h"
#include "tests/windows/FloatFiles.h"

namespace kelm {
namespace test {

// Parameterized by the build's width, 32 or 64. Skips when the build is missing.
class WindowsBuildTest : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        struct stat s;
        if (stat(dir().c_str(), &s) != 0)
            GTEST_SKIP() << dir() << " is missing: scripts/build-windows.sh builds it";
    }
    int width() const { return GetParam(); }
    std::string dir() const { return sourcePath("build-win" + std::to_string(width())); }
    // Runs a program of the build in its folder under wine, in a prefix of the width's own.
    CommandResult wine(const std::string& arguments) const {
        const std::string loader = width() == 32 ? "/usr/lib/wine/wine" : "/usr/lib/wine/wine64";
        return run("cd " + dir() + " && WINEDEBUG=-all WINEPREFIX=/tmp/kelm-wine" + std::to_string(width()) + " " +
                   loader + " " + arguments);
    }
    // A 32-bit run where this machine runs 32-bit programs only through qemu (wine32-or-skip.sh).
    bool emulated() const { return width() == 32 && std::getenv("KELM_I386_EMULATED") != nullptr; }

    // Checks that the module is of the build's width and imports only Windows' own DLLs (no
    // runtime DLL of the compiler: libstdc++, libgcc_s, libwinpthread); its exports, sorted.
    std::vector<std::string> exportsOf(const std::string& file) const {
        const std::string objdump = width() == 32 ? "i686-w64-mingw32-objdump" : "x86_64-w64-mingw32-objdump";
        auto r = run(objdump + " -p " + dir() + "/" + file);
        EXPECT_EQ(0, r.status) << r.output;
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
        const std::set<std::string> system = {"kernel32.dll", "msvcrt.dll", "user32.dll", "gdi32.dll", "shell32.dll",
                                              "advapi32.dll", "ole32.dll", "comctl32.dll", "msimg32.dll"};
        EXPECT_TRUE(imports.count("kernel32.dll"));
        for (const auto& name : imports) EXPECT_TRUE(system.count(name)) << file << " imports " << name;
        std::sort(exports.begin(), exports.end());
        return exports;
    }
};

inline std::string windowsPath(const std::string& path) { return "Z:" + path; }

} // namespace test
} // namespace kelm
