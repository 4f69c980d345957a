// The references from independent tools (ngspice, scipy) that the tests read from tests/data,
// made anew by the scripts that stored them and compared with what is stored: the data still
// says what the tools say. Label Reference in ctest (needs ngspice and python3-scipy).
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/TestUtil.h"

using namespace kelm::test;
namespace fs = std::filesystem;

namespace {

bool number(const std::string& token, double& value) {
    char* end = nullptr;
    value = std::strtod(token.c_str(), &end);
    return !token.empty() && end == token.c_str() + token.size();
}

// Runs tests/data/DIR/make_reference.py on a copy of tests/data (the script writes beside
// itself) and compares the reference.txt it writes with the stored one, word by word:
// numbers within rel of the larger plus abs, anything else equal.
void expectRegenerates(const std::string& dir, double rel, double abs) {
    const fs::path data = sourcePath("tests/data"), copy = tempPath("reference");
    fs::remove_all(copy);
    fs::create_directories(copy / dir);
    for (const auto& entry : fs::directory_iterator(data))
        if (entry.path().extension() == ".py") fs::copy_file(entry.path(), copy / entry.path().filename());
    fs::copy_file(data / dir / "make_reference.py", copy / dir / "make_reference.py");
    const auto r = run("/usr/bin/python3 " + (copy / dir / "make_reference.py").string());
    ASSERT_EQ(0, r.status) << r.output;
    std::istringstream stored(readText((data / dir / "reference.txt").string()));
    std::istringstream made(readText((copy / dir / "reference.txt").string()));
    fs::remove_all(copy);
    std::string a, b;
    size_t line = 0, numbers = 0;
    double worst = 0;
    while (std::getline(stored, a)) {
        ++line;
        ASSERT_TRUE(std::getline(made, b)) << dir << ": the new reference ends at line " << line;
        std::istringstream wa(a), wb(b);
        std::string x, y;
        while (wa >> x) {
            ASSERT_TRUE(wb >> y) << dir << ", line " << line << ": " << b;
            double u, v;
            if (number(x, u) && number(y, v)) {
                const double d = std::fabs(u - v);
                worst = std::max(worst, d / (std::max(std::fabs(u), std::fabs(v)) + abs / rel));
                ASSERT_LE(d, rel * std::max(std::fabs(u), std::fabs(v)) + abs) << dir << ", line " << line << ": " << x
                                                                                << " stored, " << y << " now";
                ++numbers;
            } else {
                ASSERT_EQ(x, y) << dir << ", line " << line;
            }
        }
        EXPECT_FALSE(wb >> y) << dir << ", line " << line << " is longer now: " << b;
    }
    EXPECT_FALSE(std::getline(made, b)) << dir << ": the new reference is longer";
    std::printf("%s: %zu numbers on %zu lines, the largest relative difference %.3g\n", dir.c_str(), numbers, line,
                worst);
}

} // namespace

TEST(ReferenceData, ToneStackResponsesFromNgspice) { expectRegenerates("baxandall", 1e-6, 1e-12); }

TEST(ReferenceData, TriodeStageFromNgspice) { expectRegenerates("triode-stage", 1e-6, 1e-9); }

TEST(ReferenceData, FilterDesignsFromScipy) { expectRegenerates("filter-design", 1e-12, 1e-15); }
