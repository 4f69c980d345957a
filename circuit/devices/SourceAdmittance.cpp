#include "circuit/devices/SourceAdmittance.h"

#include <cmath>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "math/TableIndex.h"

namespace kelm {

void SourceAdmittance::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                            const std::shared_ptr<MNAContext>& ctx) {
    auto copy = std::make_shared<PropertyMap>(*properties);
    (*copy)["Resistance"] = "1.0e15";  // nearly open until the first sample sets the admittance
    Resistor::init(name, copy, names, ctx);
    context->addListener(this);
    if (properties->empty()) return;
    const PropertyMap& p = *properties;
    p.readOptional("Threshold", threshold);
    p.readRequired("VinMin", vinMin, KELMException("VinMin is not defined. SourceAdmittance name=" + name));
    p.readRequired("VinMax", vinMax, KELMException("VinMax is not defined. SourceAdmittance name=" + name));
    p.readRequired("DeltaV", deltaV, KELMException("DeltaV is not defined. SourceAdmittance name=" + name));
    if (!(deltaV > 0)) throw InvalidArgumentException("DeltaV must be greater than 0. SourceAdmittance name=" + name);
    if (!(vinMax > vinMin))
        throw InvalidArgumentException("VinMax must be greater than VinMin. SourceAdmittance name=" + name);
    inverseDelta = 1.0f / deltaV;
    table = std::make_shared<ScalarVector>();
    const double entries = (static_cast<double>(vinMax) - vinMin) * inverseDelta + 5;
    if (entries < 1 << 20) table->reserve(static_cast<size_t>(entries));  // room for a table of the usual size
    ScalarVectorPtr values;
    if (p.readOptional("out", values)) table = values;
}

void SourceAdmittance::propertiesChanged(const PropertyMapPtr& properties) {
    ScalarVectorPtr values;
    if (properties->readOptional("out", values)) table = values;
}

void SourceAdmittance::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name != "out")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". SourceAdmittance name=" +
                                       elementName);
    table = value;
}

void SourceAdmittance::setNodes(const NodeIndices& n) {
    Resistor::setNodes(n);
    inputRow = (*n)[0];
}

void SourceAdmittance::nextSample() {
    // A first node at ground follows 0 V.
    if (follow(inputRow >= 0 ? context->solution().data()[inputRow] : 0.0f)) context->setStampsChanged();
}

bool SourceAdmittance::describeSignalConductance(SignalConductance& conductance) {
    conductance.a = 0;
    conductance.b = 1;
    conductance.sense = 0;
    return true;
}

double SourceAdmittance::updateSignalConductance(double sensed) {
    follow(static_cast<scalar>(sensed));
    return admittance;
}

bool SourceAdmittance::follow(scalar node) {
    if (!table || table->empty())
        throw KELMException("SourceAdmittance: no admittance table. SourceAdmittance name=" + elementName);
    const ScalarVector& t = *table;
    const scalar v = node - vinMin;
    const int size = static_cast<int>(t.size());
    const int i = tableIndex(v * inverseDelta, -1, size);
    scalar g;
    if (i <= 0)
        g = t[0];
    else if (i < size - 1)
        g = (v - i * deltaV) * (t[i + 1] - t[i]) * inverseDelta + t[i];
    else
        g = t[size - 1];
    if (threshold * lastAdmittance > std::fabs(g - lastAdmittance)) return false;
    lastAdmittance = g;
    admittance = g;
    return true;
}

} // namespace kelm
