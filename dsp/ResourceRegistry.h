#pragma once
#include <cstddef>
#include <string>

namespace kelm {

// The resources compiled into the binary at build time, by type and name. On Linux an
// embedded table (filled by the generated registrations); on Windows the module's own
// resource section, where add() does nothing.
class ResourceRegistry {
public:
    struct Resource {
        const unsigned char* data;
        size_t size;
    };
    static void add(const std::string& type, const std::string& name, const unsigned char* data, size_t size);
    // Null data when there is no such resource.
    static Resource find(const std::string& type, const std::string& name);
};

} // namespace kelm
