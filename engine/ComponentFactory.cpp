#include "engine/ComponentFactory.h"

#include <algorithm>

#include "circuit/Battery.h"
#include "circuit/Capacitor.h"
#include "circuit/IdealAmplifier.h"
#include "circuit/IdealDifferentialAmplifier.h"
#include "circuit/LookupTableAmp.h"
#include "circuit/OpAmp.h"
#include "circuit/Potentiometer.h"
#include "circuit/Resistor.h"
#include "circuit/VoltageInputSource.h"
#include "engine/KELMException.h"
#include "solvers/Pentode.h"
#include "solvers/Triode.h"

namespace kelm {

namespace {
template <typename T>
Component* make() {
    return new T();
}
} // namespace

const std::unordered_map<std::string, ComponentFactory::Maker>& ComponentFactory::table() {
    static const std::unordered_map<std::string, Maker> types = {
        {"Resistor", make<Resistor>},
        {"Capacitor", make<Capacitor>},
        {"VoltageInputSource", make<VoltageInputSource>},
        {"Battery", make<Battery>},
        {"Potentiometer", make<Potentiometer>},
        {"IdealAmplifier", make<IdealAmplifier>},
        {"IdealDifferentialAmplifier", make<IdealDifferentialAmplifier>},
        {"OpAmp", make<OpAmp>},
        {"Triode", make<Triode>},
        {"Pentode", make<Pentode>},
        {"LookupTableAmp", make<LookupTableAmp>},
    };
    return types;
}

Component* ComponentFactory::create(const std::string& typeName) {
    auto it = table().find(typeName);
    if (it == table().end()) throw KELMException("Unknown element type: " + typeName);
    return it->second();
}

bool ComponentFactory::hasType(const std::string& typeName) { return table().count(typeName) != 0; }

std::vector<std::string> ComponentFactory::typeNames() {
    std::vector<std::string> names;
    for (auto& entry : table()) names.push_back(entry.first);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace kelm
