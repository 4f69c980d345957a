#pragma once
#include <string>

namespace kelm {

class Component;

// Factory of circuit components supplied by a plug-in; asked before the engine's own.
class PluginComponentFactory {
public:
    virtual Component* create(const std::string& typeName) = 0;
    virtual ~PluginComponentFactory() {}
    virtual bool hasType(const std::string& typeName) = 0;
};

} // namespace kelm
