#include "circuit/VoltageInputSource.h"

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void VoltageInputSource::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                              const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2) throw InvalidArgumentException("VoltageInputSource must have two nodes");
    properties->readRequired("InputNumber", inputNumber,
                             InvalidArgumentException("InputNumber is not defined. VoltageInputSource name=" + name));
    setupMode(*properties);
    context->addListener(this);
}

void VoltageInputSource::readProperties(const PropertyMap& p) {
    p.readOptional("UseFixedVoltage", useFixedVoltage);
    p.readOptional("DCOffset", dcOffset);
}

scalar* VoltageInputSource::getRhs(scalar*) {
    if (!fetched) {
        circuitInputs = context->inputs();
        fetched = true;
        if (circuitInputs && (inputNumber < 0 || inputNumber >= static_cast<int>(circuitInputs->size())))
            throw KELMException(str("VoltageInputSource: InputNumber ", inputNumber,
                                    " is outside the circuit's inputs. VoltageInputSource name=", elementName));
    }
    if (circuitInputs) inputValue = (*circuitInputs)[inputNumber];
    fill(dcOffset + inputValue);
    return rhs;
}

void VoltageInputSource::propertiesChanged(const PropertyMapPtr& properties) { readProperties(*properties); }

void VoltageInputSource::propertyChanged(const std::string& name, scalar value) {
    if (name != "DCOffset")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name +
                                       ". VoltageInputSource name=" + elementName);
    dcOffset = value;
}

void VoltageInputSource::analysisChanged(AnalysisType oldType, AnalysisType newType) {
    if (oldType != newType && oldType != AnalysisType::AC) inputValue = 0;
}

} // namespace kelm
