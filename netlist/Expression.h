#pragma once
#include <functional>
#include <string>

namespace kelm {

// Gives the value of a parameter by its lower-case name; false where there is none.
typedef std::function<bool(const std::string& name, double& value)> ParameterLookup;

// Evaluates an expression of a netlist's .param lines and {braces} (the braces left
// out) as ngspice evaluates it: numbers with SPICE suffixes, parameters, + - * /,
// ^ and ** (left to right, binding tighter than a sign: -2^2 is -4), comparisons,
// && || !, c ? a : b, parentheses, and sqrt exp ln log (natural) log10 sin cos tan
// asin acos atan sinh cosh tanh abs sgn int nint floor ceil min max pow pwr.
// Throws NetlistError (Expression) naming the expression where it does not parse,
// names an unknown parameter or function, or gives no finite number.
double evaluateExpression(const std::string& text, const ParameterLookup& lookup);

} // namespace kelm
