#pragma once
#include <string>
#include <vector>

namespace kelm {

// Reads a whole file into memory.
class FileReader {
public:
    explicit FileReader(const std::string& name);
    const char* data() const { return bytes.data(); }
    size_t size() const { return bytes.size(); }

private:
    std::vector<char> bytes;
};

} // namespace kelm
