#pragma once
#include <functional>
#include <string>
#include <unordered_map>

#include "engine/PluginDSPElementFactory.h"

namespace kelm {

// The plug-in's own DSP elements; its table is empty.
class KelmDSPElementFactory : public PluginDSPElementFactory {
public:
    Filter* create(const std::string& typeName) override;
    bool hasType(const std::string& typeName) override { return types.count(typeName) != 0; }

private:
    std::unordered_map<std::string, std::function<Filter*()>> types;
};

} // namespace kelm
