// Fuzz target: any bytes as the kelm tool's command line, one argument per NUL-separated
// piece after the program name. The parser may only answer with a usage error.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> words{"kelm"};
    std::string word;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            words.push_back(word);
            word.clear();
        } else {
            word += static_cast<char>(data[i]);
        }
    }
    if (size > 0) words.push_back(word);
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);
    try {
        kelm::cli::parseCommandLine(static_cast<int>(words.size()), argv.data());
    } catch (const kelm::cli::UsageError&) {
    }
    return 0;
}
