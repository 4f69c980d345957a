#include "circuit/devices/Transformer.h"

#include <cmath>
#include <cstdlib>
#include <vector>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void Transformer::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                       const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    if (nodeCount() != 4)
        throw InvalidArgumentException(str("Transformer must have four nodes (primary +, primary -, secondary +, "
                                           "secondary -), not ",
                                           nodeCount(), ". Transformer name=", name));
    std::string text;
    properties->readRequired("Inductances", text,
                             KELMException("Inductances is not defined. Transformer name=" + name));
    double coupling = 0;
    properties->readRequired("Coupling", coupling, KELMException("Coupling is not defined. Transformer name=" + name));
    k = coupling;
    readInductances(text);
    listen();
}

void Transformer::readInductances(const std::string& text) {
    std::vector<double> values;
    size_t start = 0;
    while (start <= text.size()) {
        size_t bar = text.find('|', start);
        if (bar == std::string::npos) bar = text.size();
        const std::string piece = text.substr(start, bar - start);
        if (!piece.empty()) values.push_back(std::strtod(piece.c_str(), nullptr));
        start = bar + 1;
    }
    if (values.size() != 2)
        throw InvalidArgumentException("Inductances must give the primary's and the secondary's, as L1|L2: " + text +
                                       ". Transformer name=" + elementName);
    set(values[0], values[1], k);
}

void Transformer::set(double primary, double secondary, double coupling) {
    for (double l : {primary, secondary})
        if (!(l > 0) || !std::isfinite(l))
            throw InvalidArgumentException(
                str("Inductances must be positive. Transformer name=", elementName, ", value=", l));
    if (!(coupling > 0 && coupling < 1))
        throw InvalidArgumentException(
            str("Coupling must lie between 0 and 1. Transformer name=", elementName, ", value=", coupling));
    l1 = primary;
    l2 = secondary;
    k = coupling;
    setInductances(2, l1, l2, k * std::sqrt(l1 * l2));
}

void Transformer::propertiesChanged(const PropertyMapPtr& properties) {
    double coupling = k;
    properties->readOptional("Coupling", coupling);
    std::string text;
    if (properties->readOptional("Inductances", text)) {
        const double keep = k;
        k = coupling;
        try {
            readInductances(text);
        } catch (...) {
            k = keep;
            throw;
        }
    } else {
        set(l1, l2, coupling);
    }
}

void Transformer::propertyChanged(const std::string& name, scalar value) {
    if (name != "Coupling")
        throw InvalidArgumentException("propertyChanged: Invalid property: " + name + ". Transformer name=" +
                                       elementName);
    set(l1, l2, value);
}

void Transformer::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name != "Inductances" || !value || value->size() != 2)
        throw InvalidArgumentException("propertyChanged: Invalid property: " + name + ". Transformer name=" +
                                       elementName);
    set((*value)[0], (*value)[1], k);
}

} // namespace kelm
