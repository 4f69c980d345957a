#include "dsp/ElementMeta.h"

#include <cstdlib>

#include "dsp/BasicFilterMeta.h"
#include "dsp/DifferentialFilterMeta.h"
#include "dsp/SwitchMeta.h"
#include "engine/InvalidArgumentException.h"
#include "engine/PropertyMap.h"
#include "engine/Str.h"

namespace kelm {

int ElementMeta::outputIndex(const std::string& name) {
    if (name == "out") return 0;
    throw InvalidArgumentException("Invalid output port name: " + name + ". Expected \"out\".");
}

int BasicFilterMeta::inputIndex(const std::string& name) {
    if (name == "in") return 0;
    throw InvalidArgumentException("Invalid input port name: " + name + ". Expected \"in\".");
}

const ElementMetaPtr& BasicFilterMeta::instance() {
    static const ElementMetaPtr meta = std::make_shared<BasicFilterMeta>();
    return meta;
}

int SwitchMeta::inputIndex(const std::string& name) {
    if (name.compare(0, 3, "in_") != 0)
        throw InvalidArgumentException("Invalid input port name: " + name +
                                       ". INput port name must start with \"in_\" followed by a number.");
    int index = Conversions::toInt(name.substr(3));
    if (index >= 0 && index < inputs) return index;
    throw InvalidArgumentException(str("SwitchMeta: Invalid input port", name, ", NumberOfInputs=", inputs));
}

int DifferentialFilterMeta::inputIndex(const std::string& name) {
    if (name == "plus") return 0;
    if (name == "minus") return 1;
    throw InvalidArgumentException("Invalid input port name: " + name + ". Expected \"plus\" or \"minus\".");
}

const ElementMetaPtr& DifferentialFilterMeta::instance() {
    static const ElementMetaPtr meta = std::make_shared<DifferentialFilterMeta>();
    return meta;
}

} // namespace kelm
