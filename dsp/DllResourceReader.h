#pragma once
#include <string>

namespace kelm {

// Presents a resource of the module, named "TYPE|NAME", as bytes. The bytes
// stay in the module and are not copied.
class DllResourceReader {
public:
    explicit DllResourceReader(const std::string& name);
    const char* data() const { return bytes; }
    size_t size() const { return length; }

private:
    const char* bytes = nullptr;
    size_t length = 0;
};

} // namespace kelm
