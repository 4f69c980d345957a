#pragma once
#include <cstddef>
#include <string>

namespace kelm {

// The resources compiled into the binary at build time, by type and name: the
// stand-in for a module's resource section on platforms without one.
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
