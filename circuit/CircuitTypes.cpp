#include "circuit/CircuitTypes.h"

#include <pugixml.hpp>

#include "circuit/Battery.h"
#include "circuit/Capacitor.h"
#include "circuit/CircuitParser.h"
#include "circuit/Potentiometer.h"
#include "circuit/Resistor.h"
#include "circuit/VCVS.h"
#include "circuit/VoltageInputSource.h"
#include "circuit/devices/BJT.h"
#include "circuit/devices/Diode.h"
#include "circuit/devices/IdealAmplifier.h"
#include "circuit/devices/IdealDifferentialAmplifier.h"
#include "circuit/devices/Inductor.h"
#include "circuit/devices/JFET.h"
#include "circuit/devices/LookupTableAmp.h"
#include "circuit/devices/MOSFET.h"
#include "circuit/devices/OpAmp.h"
#include "circuit/devices/Pentode.h"
#include "circuit/devices/SourceAdmittance.h"
#include "circuit/devices/Transformer.h"
#include "circuit/devices/Triode.h"
#include "engine/GraphTypes.h"

namespace kelm {

namespace {
template <typename T>
Component* make() {
    return new T();
}
} // namespace

TypeRegistry<ComponentMaker>& componentTypes() {
    static TypeRegistry<ComponentMaker> types;
    return types;
}

TypeRegistry<SolverMaker>& solverTypes() {
    static TypeRegistry<SolverMaker> types;
    return types;
}

void registerCircuitTypes() {
    TypeRegistry<ComponentMaker>& types = componentTypes();
    types.add("Resistor", make<Resistor>);
    types.add("Capacitor", make<Capacitor>);
    types.add("VoltageInputSource", make<VoltageInputSource>);
    types.add("Battery", make<Battery>);
    types.add("Potentiometer", make<Potentiometer>);
    types.add("VCVS", make<VCVS>);
    types.add("IdealAmplifier", make<IdealAmplifier>);
    types.add("IdealDifferentialAmplifier", make<IdealDifferentialAmplifier>);
    types.add("OpAmp", make<OpAmp>);
    types.add("Triode", make<Triode>);
    types.add("Pentode", make<Pentode>);
    types.add("LookupTableAmp", make<LookupTableAmp>);
    types.add("SourceAdmittance", make<SourceAdmittance>);
    types.add("Diode", make<Diode>);
    types.add("BJT", make<BJT>);
    types.add("JFET", make<JFET>);
    types.add("MOSFET", make<MOSFET>);
    types.add("Inductor", make<Inductor>);
    types.add("Transformer", make<Transformer>);
    graphTypes().add("MNA", [](const pugi::xml_node& node, const std::string& name) {
        GraphPtr graph;
        CircuitParser().parse(graph, node, name);
        return graph;
    });
}

} // namespace kelm
