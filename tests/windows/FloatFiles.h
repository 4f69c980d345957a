#pragma once
// Raw little-endian 32-bit float files, the samples that pass between the tests and our
// Windows programs under wine (interleaved where there are two channels).
#include <cstdio>
#include <string>
#include <vector>

namespace kelm {
namespace test {

inline bool writeFloats(const std::string& path, const std::vector<float>& x) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(x.data(), sizeof(float), x.size(), f) == x.size();
    return std::fclose(f) == 0 && ok;
}

// Appends the file's samples to x; false when it cannot be read.
inline bool readFloats(const std::string& path, std::vector<float>& x) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    float buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, sizeof(float), 4096, f)) > 0) x.insert(x.end(), buffer, buffer + n);
    std::fclose(f);
    return true;
}

// The file's samples; none when it cannot be read.
inline std::vector<float> readFloats(const std::string& path) {
    std::vector<float> x;
    readFloats(path, x);
    return x;
}

} // namespace test
} // namespace kelm
