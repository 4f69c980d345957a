// Broken documents give errors, never crashes: mutations of the example systems
// and the built-in one are parsed, set up and run for a few blocks.
#include <cstdlib>
#include <fstream>
#include <random>

#include "plugin/core/BuiltInData.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Replaces the value of the n-th attribute with a hostile one.
std::string mutateValue(std::string doc, std::mt19937& rng) {
    static const char* values[] = {"-1", "0", "nan", "inf", "1e40", "-1e40", "", "abc", "0.5", "3", "|", "1|2|3|4|5|6"};
    std::vector<size_t> quotes;
    for (size_t at = doc.find("=\""); at != std::string::npos; at = doc.find("=\"", at + 1)) quotes.push_back(at + 2);
    if (quotes.empty()) return doc;
    size_t start = quotes[rng() % quotes.size()];
    size_t end = doc.find('"', start);
    return doc.replace(start, end - start, values[rng() % (sizeof values / sizeof *values)]);
}

std::string mutateBytes(std::string doc, std::mt19937& rng) {
    size_t at = rng() % doc.size();
    switch (rng() % 3) {
    case 0:
        return doc.erase(at, rng() % 40);
    case 1:
        return doc.insert(at, doc.substr(rng() % doc.size(), rng() % 60));
    default:
        doc[at] = "<>/\"= x"[rng() % 7];
        return doc;
    }
}

// Parses, sets up and runs a few blocks; any KELMException is a fine answer.
void exercise(const std::string& doc) {
    try {
        Driver d;
        d.init(doc);
        d.setSampleRate(48000);
        d.setMaxBlockSize(64);
        std::vector<float> a(64, 0.25f), b(64, -0.25f);
        for (int i = 0; i < 3; ++i) d.process({a.data(), b.data()}, 64);
    } catch (const KELMException&) {
    } catch (const std::exception&) {
        // The designer's validation speaks through the standard exceptions.
    }
}

} // namespace

TEST(EngineRobustness, MutatedDocumentsNeverCrash) {
    std::vector<std::string> docs = {readText(sourcePath("examples/dsp-demo.xml")),
                                     readText(sourcePath("examples/baxandall.xml")),
                                     readText(sourcePath("examples/oversampling.xml")),
                                     readText(sourcePath("examples/triode-stage.xml")), BuiltInData::document()};
    // KELM_FUZZ_SEED and KELM_FUZZ_TRIALS let a developer search further than the suite does.
    const char* seed = std::getenv("KELM_FUZZ_SEED");
    const char* trials = std::getenv("KELM_FUZZ_TRIALS");
    const int perDocument = trials ? std::atoi(trials) : 60;
    std::mt19937 rng(seed ? static_cast<unsigned>(std::atoi(seed)) : 2026u);
    int runs = 0;
    for (const std::string& doc : docs) {
        for (int trial = 0; trial < perDocument; ++trial) {
            std::string m = doc;
            for (int k = 0, edits = 1 + rng() % 3; k < edits; ++k) m = (rng() % 2) ? mutateValue(m, rng) : mutateBytes(m, rng);
            if (seed) {  // while searching, keep the document under test for a post mortem
                std::ofstream f(tempPath("fuzz-last.xml"));
                f << m;
            }
            exercise(m);
            ++runs;
        }
    }
    EXPECT_EQ(5 * perDocument, runs);
}
