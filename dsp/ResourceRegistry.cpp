// The registry of resources compiled into the binary (see cmake_embed.cmake). Windows
// builds replace this file with one that reads the module's own resource section.
#include "dsp/ResourceRegistry.h"

#include <map>
#include <mutex>

namespace kelm {

namespace {
std::map<std::pair<std::string, std::string>, ResourceRegistry::Resource>& table() {
    static std::map<std::pair<std::string, std::string>, ResourceRegistry::Resource> t;
    return t;
}
std::mutex& tableLock() {
    static std::mutex m;
    return m;
}
} // namespace

void ResourceRegistry::add(const std::string& type, const std::string& name, const unsigned char* data, size_t size) {
    std::lock_guard<std::mutex> lock(tableLock());
    table()[{type, name}] = {data, size};
}

ResourceRegistry::Resource ResourceRegistry::find(const std::string& type, const std::string& name) {
    std::lock_guard<std::mutex> lock(tableLock());
    auto it = table().find({type, name});
    return it == table().end() ? Resource{nullptr, 0} : it->second;
}

} // namespace kelm
