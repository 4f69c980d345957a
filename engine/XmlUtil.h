#pragma once
#include <memory>

#include <pugixml.hpp>

#include "engine/PropertyMap.h"

namespace kelm {

// Copies every attribute of a node into a new property table.
inline PropertyMapPtr propertiesOf(const pugi::xml_node& node) {
    auto map = std::make_shared<PropertyMap>();
    if (node)
        for (pugi::xml_attribute a : node.attributes()) (*map)[a.name()] = a.value();
    return map;
}

// True when the attribute is present and not empty.
inline bool hasText(const pugi::xml_attribute& a) { return a && a.value()[0] != '\0'; }

} // namespace kelm
