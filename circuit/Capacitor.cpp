#include "circuit/Capacitor.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

Capacitor::Capacitor() : stamp(2, 2) {}

void Capacitor::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                     const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 2) throw InvalidArgumentException("Capacitor must have two nodes. Capacitor name=" + name);
    read(*properties);
    context->addListener(this);
}

void Capacitor::read(const PropertyMap& p) {
    std::string scheme;
    if (p.readOptional("IntegrationScheme", scheme)) {
        if (scheme != "Trapezoidal" && scheme != "BackwardEuler")
            throw InvalidArgumentException("Unknown IntegrationScheme " + scheme);
        trapezoidal = scheme == "Trapezoidal";
    }
    scalar c = 0;
    p.readRequired("Capacitance", c, KELMException("Capacitance is not defined. Capacitor name=" + elementName));
    setCapacitance(c);
}

void Capacitor::setCapacitance(scalar c) {
    if (!(c >= 0))
        throw InvalidArgumentException(
            str("propertyChanged: Capacitance cannot be negative. Capacitor name=", elementName, ", value=", c));
    capacitance = c;
    if (sampleRate > 0) admittance = static_cast<scalar>(admittanceFor(capacitance, sampleRate));
    if (firstStep) startFrom(voltage);
}

void Capacitor::fetchRate() {
    sampleRate = context->getSampleRate();
    if (!(sampleRate > 0)) throw KELMException("Capacitor: Sampling Rate has not been set for AC analysis");
    sampleRateChanged(sampleRate);
}

void Capacitor::sampleRateChanged(scalar rate) {
    if (!(rate > 0)) throw InvalidArgumentException(str("Capacitor: Invalid sampling rate: ", rate));
    sampleRate = rate;
    admittance = static_cast<scalar>(admittanceFor(capacitance, sampleRate));
    if (firstStep) startFrom(voltage);
}

scalar** Capacitor::getG() {
    if (context->getAnalysisType() == AnalysisType::DC) return nullptr;
    if (!(sampleRate > 0)) fetchRate();
    stamp(0, 0) = admittance;
    stamp(0, 1) = -admittance;
    stamp(1, 0) = -admittance;
    stamp(1, 1) = admittance;
    return stamp.rows();
}

scalar* Capacitor::getRhs(scalar*) {
    if (context->getAnalysisType() == AnalysisType::DC) return nullptr;
    if (!(sampleRate > 0)) fetchRate();
    return rhs;
}

void Capacitor::setNodes(const NodeIndices& n) {
    Component::setNodes(n);
    nodeAValid = (*n)[0] >= 0;
    nodeBValid = (*n)[1] >= 0;
    nodeA = (*n)[0];
    nodeB = (*n)[1];
}

void Capacitor::nextSample() {
    if (context->getAnalysisType() == AnalysisType::DC) return;
    if (!(sampleRate > 0)) fetchRate();
    const scalar* x = context->solution().data();
    double v = 0;
    if (nodeAValid) v = x[nodeA];
    if (nodeBValid) v -= x[nodeB];
    firstStep = false;
    voltage = v;
    setCurrent(updateGain() * v + updateFeedback() * current);
}

bool Capacitor::describeMemory(MemoryModel& model) {
    if (context->getAnalysisType() == AnalysisType::DC) return false;
    if (!(sampleRate > 0)) fetchRate();
    model.states = 1;
    model.senses = 1;
    model.sensePlus[0] = 0;
    model.senseMinus[0] = 1;
    model.inject[0][0] = -1.0;
    model.inject[1][0] = 1.0;
    model.feedback[0][0] = updateFeedback();
    model.gain[0][0] = updateGain();
    return true;
}

void Capacitor::analysisChanged(AnalysisType oldType, AnalysisType newType) {
    if (oldType == newType || oldType == AnalysisType::AC) return;
    firstStep = true;
    const scalar* x = context->solution().data();
    double v = 0;
    if (nodeAValid) v = x[nodeA];
    if (nodeBValid) v -= x[nodeB];
    startFrom(v);
}

void Capacitor::propertiesChanged(const PropertyMapPtr& properties) {
    read(*properties);
    context->setMatrixChanged(true);
}

void Capacitor::propertyChanged(const std::string& name, scalar value) {
    if (name != "Capacitance")
        throw InvalidArgumentException("propertyChanged: Invalid property: " + name + ". Capacitor name=" +
                                       elementName);
    setCapacitance(value);
    context->setMatrixChanged(true);
}

} // namespace kelm
