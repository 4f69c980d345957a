// The resources of this module's own resource section (compiled from the resource
// script that cmake/embed_rc.cmake writes), looked up by type and name. Windows
// builds link this file in place of the embedded registry of dsp/.
#include "dsp/ResourceRegistry.h"

#include <string>

#include "plugin/platform/win32/ThisModule.h"

namespace kelm {

namespace {
// Widened byte by byte, as the names are plain ASCII file and folder names.
std::wstring widen(const std::string& s) { return std::wstring(s.begin(), s.end()); }
} // namespace

// The module's resource section is fixed at link time: nothing is added at run time.
void ResourceRegistry::add(const std::string&, const std::string&, const unsigned char*, size_t) {}

ResourceRegistry::Resource ResourceRegistry::find(const std::string& type, const std::string& name) {
    if (type.empty() || name.empty()) return {nullptr, 0};
    const HMODULE module = thisModule();
    const std::wstring wideType = widen(type), wideName = widen(name);
    HRSRC info = FindResourceW(module, wideName.c_str(), wideType.c_str());
    if (!info) return {nullptr, 0};
    HGLOBAL loaded = LoadResource(module, info);
    const void* data = loaded ? LockResource(loaded) : nullptr;
    if (!data) return {nullptr, 0};
    return {static_cast<const unsigned char*>(data), static_cast<size_t>(SizeofResource(module, info))};
}

} // namespace kelm
