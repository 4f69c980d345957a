#include "engine/Element.h"

#include "engine/OperationNotSupportedException.h"

namespace kelm {

Element::~Element() {}

void Element::propertiesChanged(const PropertyMapPtr&) {
    throw OperationNotSupportedException("propertiesChanged is not supported. Element: " + elementName);
}

void Element::propertyChanged(const std::string&, scalar) {
    throw OperationNotSupportedException("propertyChanged(scalar) is not supported. Element: " + elementName);
}

void Element::propertyChanged(const std::string&, const ScalarVectorPtr&) {
    throw OperationNotSupportedException("propertyChanged(vector) is not supported. Element: " + elementName);
}

} // namespace kelm
