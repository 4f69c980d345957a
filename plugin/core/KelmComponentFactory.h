#pragma once
#include <functional>
#include <string>
#include <unordered_map>

#include "engine/PluginComponentFactory.h"

namespace kelm {

// The plug-in's own circuit components ("SourceAdmittance").
class KelmComponentFactory : public PluginComponentFactory {
public:
    KelmComponentFactory();
    Component* create(const std::string& typeName) override;
    bool hasType(const std::string& typeName) override { return types.count(typeName) != 0; }

private:
    std::unordered_map<std::string, std::function<Component*()>> types;
};

} // namespace kelm
