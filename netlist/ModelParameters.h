#pragma once
#include <string>
#include <utility>
#include <vector>

namespace kelm {

// A model card's parameters as the properties of the engine's device elements.
struct ModelProperties {
    std::vector<std::pair<std::string, double>> properties;  // in the order of the card
    std::vector<std::string> ignored;                        // SPICE names the element does not take
};

// Translates the parameters (lower-case SPICE names, ngspice's aliases included: VA for
// VAF, PE for VJE, ME for MJE, CJ0 for CJO ...) of a card used by a device of kind
// d, q, j or m into the element's property names; an area factor scales the currents and
// capacitances and divides the resistances, as SPICE does.
ModelProperties modelProperties(char kind, const std::vector<std::pair<std::string, double>>& parameters,
                                double area);

} // namespace kelm
