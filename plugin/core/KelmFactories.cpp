#include "circuit/SourceAdmittance.h"
#include "engine/KELMException.h"
#include "plugin/core/KelmComponentFactory.h"
#include "plugin/core/KelmDSPElementFactory.h"

namespace kelm {

KelmComponentFactory::KelmComponentFactory() {
    types["SourceAdmittance"] = [] { return static_cast<Component*>(new SourceAdmittance()); };
}

Component* KelmComponentFactory::create(const std::string& typeName) {
    auto it = types.find(typeName);
    if (it == types.end()) throw KELMException("Unknown component type: " + typeName);
    return it->second();
}

Filter* KelmDSPElementFactory::create(const std::string& typeName) {
    auto it = types.find(typeName);
    if (it == types.end()) throw KELMException("Unknown element type: " + typeName);
    return it->second();
}

} // namespace kelm
