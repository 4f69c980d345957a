#pragma once
#include <string>

#include "engine/PropertyMap.h"

namespace kelm {

// The built-in semiconductor model cards, by part name: the SPICE model type of each ("D",
// "NPN", "PNP", "NJF", "PJF", "NMOS", "PMOS") and its parameters as property text in SPICE's
// units (amperes, volts, ohms, farads, seconds).
class SemiconductorModels {
public:
    struct Card {
        std::string kind;
        PropertyMap parameters;
    };
    // The card of a part, or null where the library has none of that name.
    static const Card* find(const std::string& name);

    // The properties of a device element: its own, over those of the card its "Model"
    // names (none when it names none). Throws InvalidArgumentException naming the model
    // where the library has no such part, or where the part is not of one of the kinds
    // `kindA`/`kindB`. `kind` is set to the card's kind ("" without a model).
    static PropertyMap resolve(const PropertyMap& own, const std::string& element, const std::string& deviceType,
                               const char* kindA, const char* kindB, std::string& kind);
};

} // namespace kelm
