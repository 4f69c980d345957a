#include <fstream>

#include "dsp/DllResourceReader.h"
#include "dsp/FileReader.h"
#include "dsp/ResourceRegistry.h"
#include "engine/KELMException.h"
#include "engine/Str.h"

namespace kelm {

FileReader::FileReader(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    if (!f) throw KELMException("Cannot find file with name: " + name);
    f.seekg(0, std::ios::end);
    const std::streamoff length = f.tellg();
    if (length < 0) throw KELMException("FileReader: Cannot determine length of the file");
    if (length == 0) throw KELMException("FileReader: Empty file");
    f.seekg(0, std::ios::beg);
    bytes.resize(static_cast<size_t>(length));
    f.read(bytes.data(), length);
    if (f.gcount() != length)
        throw KELMException(str("FileReader: Read only ", f.gcount(), " out of ", length, " characters."));
}

DllResourceReader::DllResourceReader(const std::string& name) {
    const size_t bar = name.find('|');
    const std::string type = bar == std::string::npos ? "" : name.substr(0, bar);
    const std::string resource = bar == std::string::npos ? name : name.substr(bar + 1);
    ResourceRegistry::Resource r = ResourceRegistry::find(type, resource);
    if (!r.data) throw KELMException("Could not locate Resource File" + name);
    bytes = reinterpret_cast<const char*>(r.data);
    length = r.size;
}

} // namespace kelm
