#pragma once
#include <string>

namespace kelm {

class Filter;

// Factory of DSP elements supplied by a plug-in; asked before the engine's own.
class PluginDSPElementFactory {
public:
    virtual Filter* create(const std::string& typeName) = 0;
    virtual ~PluginDSPElementFactory() {}
    virtual bool hasType(const std::string& typeName) = 0;
};

} // namespace kelm
