#include "netlist/Expression.h"

#include <cctype>
#include <cmath>
#include <vector>

#include "netlist/NetlistError.h"
#include "netlist/SpiceNumber.h"

namespace kelm {

namespace {

const int kMaxDepth = 200;  // nesting of parentheses and operators

class Parser {
public:
    Parser(const std::string& text, const ParameterLookup& lookup) : s(text), lookup(lookup) {}

    double parse() {
        double v = ternary();
        skipSpace();
        if (p != s.size()) fail("unexpected '" + s.substr(p, 1) + "'");
        return v;
    }

private:
    [[noreturn]] void fail(const std::string& why) const {
        throw NetlistError(NetlistError::Expression, s, "expression {" + s + "}: " + why);
    }
    void skipSpace() {
        while (p < s.size() && std::isspace(static_cast<unsigned char>(s[p]))) ++p;
    }
    bool take(const char* op) {
        skipSpace();
        size_t k = 0;
        for (; op[k]; ++k)
            if (p + k >= s.size() || s[p + k] != op[k]) return false;
        p += k;
        return true;
    }
    // A guard on the depth of the recursion, for any nesting the input may have.
    struct Depth {
        explicit Depth(Parser& parser) : parser(parser) {
            if (++parser.depth > kMaxDepth) parser.fail("nested too deeply");
        }
        ~Depth() { --parser.depth; }
        Parser& parser;
    };

    double ternary() {
        Depth d(*this);
        double c = logicalOr();
        if (!take("?")) return c;
        double a = ternary();
        if (!take(":")) fail("'?' without ':'");
        double b = ternary();
        return c != 0 ? a : b;
    }
    double logicalOr() {
        double v = logicalAnd();
        while (take("||")) {
            double r = logicalAnd();
            v = (v != 0 || r != 0) ? 1 : 0;
        }
        return v;
    }
    double logicalAnd() {
        double v = comparison();
        while (take("&&")) {
            double r = comparison();
            v = (v != 0 && r != 0) ? 1 : 0;
        }
        return v;
    }
    double comparison() {
        double v = sum();
        for (;;) {
            if (take("==")) v = v == sum();
            else if (take("!=")) v = v != sum();
            else if (take("<=")) v = v <= sum();
            else if (take(">=")) v = v >= sum();
            else if (take("<")) v = v < sum();
            else if (take(">")) v = v > sum();
            else return v;
        }
    }
    double sum() {
        double v = product();
        for (;;) {
            if (take("+")) v += product();
            else if (take("-")) v -= product();
            else return v;
        }
    }
    double product() {
        double v = unary();
        for (;;) {
            skipSpace();
            if (p + 1 < s.size() && s[p] == '*' && s[p + 1] == '*') return v;  // a power: unary() takes it
            if (take("*")) v *= unary();
            else if (take("/")) {
                double d = unary();
                if (d == 0) fail("division by zero");
                v /= d;
            } else if (take("%")) {
                double d = unary();
                if (d == 0) fail("division by zero");
                v = std::fmod(v, d);
            } else
                return v;
        }
    }
    double unary() {
        Depth d(*this);
        if (take("-")) return -unary();
        if (take("+")) return unary();
        skipSpace();
        if (p < s.size() && s[p] == '!' && !(p + 1 < s.size() && s[p + 1] == '=')) {
            ++p;
            return unary() == 0 ? 1 : 0;
        }
        return power();
    }
    double power() {
        double v = primary();
        for (;;) {
            if (take("**") || take("^")) v = std::pow(v, primary());
            else return v;
        }
    }
    double primary() {
        Depth d(*this);
        skipSpace();
        if (p >= s.size()) fail("ends too soon");
        if (take("(")) {
            double v = ternary();
            if (!take(")")) fail("missing ')'");
            return v;
        }
        // Signs belong to unary(): a number here starts with a digit or a point.
        const char c = s[p];
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            double v = 0;
            if (!readSpiceNumber(s, p, v)) fail("a number that does not read");
            return v;
        }
        if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            size_t start = p;
            while (p < s.size() && (std::isalnum(static_cast<unsigned char>(s[p])) || s[p] == '_' || s[p] == '.'))
                ++p;
            std::string name = s.substr(start, p - start);
            for (char& ch : name) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
            if (take("(")) return call(name);
            double v = 0;
            if (!lookup || !lookup(name, v)) fail("unknown parameter '" + name + "'");
            return v;
        }
        fail("unexpected '" + std::string(1, c) + "'");
    }
    double call(const std::string& name) {
        std::vector<double> args;
        if (!take(")")) {
            for (;;) {
                args.push_back(ternary());
                if (take(")")) break;
                if (!take(",")) fail("missing ',' or ')' in " + name + "()");
            }
        }
        auto need = [&](size_t n) {
            if (args.size() != n) fail(name + "() takes " + std::to_string(n) + " argument" + (n == 1 ? "" : "s"));
        };
        typedef double (*Unary)(double);
        static const struct {
            const char* name;
            Unary f;
        } unaries[] = {{"sqrt", std::sqrt}, {"exp", std::exp},     {"ln", std::log},     {"log", std::log},
                       {"log10", std::log10}, {"sin", std::sin},   {"cos", std::cos},    {"tan", std::tan},
                       {"asin", std::asin}, {"acos", std::acos},   {"atan", std::atan},  {"sinh", std::sinh},
                       {"cosh", std::cosh}, {"tanh", std::tanh},   {"asinh", std::asinh}, {"acosh", std::acosh},
                       {"atanh", std::atanh}, {"abs", std::fabs},  {"floor", std::floor}, {"ceil", std::ceil},
                       {"int", std::trunc}, {"nint", std::rint}};
        for (const auto& u : unaries)
            if (name == u.name) {
                need(1);
                return u.f(args[0]);
            }
        if (name == "sgn") {
            need(1);
            return args[0] > 0 ? 1 : args[0] < 0 ? -1 : 0;
        }
        if (name == "min" || name == "max") {
            need(2);
            return name == "min" ? std::fmin(args[0], args[1]) : std::fmax(args[0], args[1]);
        }
        if (name == "pow") {
            need(2);
            return std::pow(args[0], args[1]);
        }
        if (name == "pwr") {
            need(2);
            const double m = std::pow(std::fabs(args[0]), args[1]);
            return args[0] < 0 ? -m : m;
        }
        if (name == "atan2") {
            need(2);
            return std::atan2(args[0], args[1]);
        }
        if (name == "ternary_fcn") {
            need(3);
            return args[0] != 0 ? args[1] : args[2];
        }
        fail("unknown function '" + name + "'");
    }

    const std::string& s;
    const ParameterLookup& lookup;
    size_t p = 0;
    int depth = 0;
};

} // namespace

double evaluateExpression(const std::string& text, const ParameterLookup& lookup) {
    Parser parser(text, lookup);
    const double v = parser.parse();
    if (!std::isfinite(v))
        throw NetlistError(NetlistError::Expression, text, "expression {" + text + "} gives no finite number");
    return v;
}

} // namespace kelm
