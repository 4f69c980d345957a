#include "netlist/Flattener.h"

#include <cctype>
#include <cstring>

#include "netlist/Expression.h"
#include "netlist/NetlistError.h"
#include "netlist/SpiceNumber.h"

namespace kelm {

namespace {

const int kMaxDepth = 32;           // nesting of subcircuit instances
const size_t kMaxDevices = 20000;   // devices after expansion
const size_t kMaxInstances = 20000; // subcircuit instances expanded
const int kMaxEvaluating = 100;     // parameters whose values wait on one another

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

[[noreturn]] void syntax(const std::string& name, const std::string& what) {
    throw NetlistError(NetlistError::Syntax, name, what);
}

} // namespace

struct Flattener::Entry {
    std::string expression;
    Netlist::Place place;
    bool known = false;
    bool busy = false;
    double value = 0;
};

struct Flattener::Scope {
    const Netlist::Subcircuit* def = nullptr;
    Scope* caller = nullptr;
    std::string prefix;      // element names: "X1." as written
    std::string nodePrefix;  // node names: "x1."
    std::map<std::string, std::string> pins;  // pin to the caller's node
    std::map<std::string, Entry> parameters;
};

Flattener::Flattener(const Netlist& netlist) : netlist(netlist) {}

Flattener::~Flattener() {}

double Flattener::value(const std::string& text, Scope& scope, const Netlist::Place& place) {
    if (text.size() >= 2 && text.front() == '{' && text.back() == '}')
        return evaluateExpression(text.substr(1, text.size() - 2),
                                  [&](const std::string& n, double& v) { return lookup(n, scope, v); });
    const SpiceNumber number = parseSpiceNumber(text);
    if (number.ok) {
        if (number.schematic) {
            char buffer[160];
            std::snprintf(buffer, sizeof buffer, "%s read as %.6g as a schematic writes it (ngspice reads %.6g)",
                          text.c_str(), number.value, number.ngspiceValue);
            result.notes.push_back({place, buffer, true});
        }
        return number.value;
    }
    // A parameter's name, or an expression written without braces (.param a = b * 2).
    return evaluateExpression(text, [&](const std::string& n, double& v) { return lookup(n, scope, v); });
}

bool Flattener::lookup(const std::string& name, Scope& scope, double& result) {
    for (Scope* s = &scope; s; s = s->caller) {
        auto it = s->parameters.find(name);
        if (it == s->parameters.end()) continue;
        Entry& e = it->second;
        if (!e.known) {
            if (e.busy)
                throw NetlistError(NetlistError::Expression, name, "parameter " + name + " depends on itself");
            if (evaluating >= kMaxEvaluating)
                throw NetlistError(NetlistError::TooLarge, name, "parameters depend on one another more than 100 deep");
            e.busy = true;
            ++evaluating;
            try {
                e.value = value(e.expression, *s, e.place);
            } catch (NetlistError& error) {
                e.busy = false;
                --evaluating;
                error.at(e.place.file, e.place.line);
                throw;
            }
            e.busy = false;
            --evaluating;
            e.known = true;
        }
        result = e.value;
        return true;
    }
    return false;
}

const Netlist::Model* Flattener::findModel(const std::string& name, const Scope& scope) const {
    const std::string key = lower(name);
    for (const Netlist::Subcircuit* d = scope.def; d; d = d->parent) {
        auto it = d->models.find(key);
        if (it != d->models.end()) return &it->second;
    }
    return nullptr;
}

const Netlist::Subcircuit* Flattener::findSubcircuit(const std::string& name, const Scope& scope) const {
    const std::string key = lower(name);
    for (const Netlist::Subcircuit* d = scope.def; d; d = d->parent) {
        auto it = d->subcircuits.find(key);
        if (it != d->subcircuits.end()) return it->second.get();
    }
    return nullptr;
}

double Flattener::topLevelValue(const std::string& text) {
    if (!topScope) {
        topScope.reset(new Scope());
        topScope->def = netlist.top.get();
        for (const auto& p : netlist.top->parameters) topScope->parameters[p.name] = {p.expression, p.place};
    }
    return value(text, *topScope, Netlist::Place());
}

Flattener::Result Flattener::flatten() {
    result = Result();
    instances = 0;
    evaluating = 0;
    topScope.reset(new Scope());
    topScope->def = netlist.top.get();
    for (const auto& p : netlist.top->parameters) topScope->parameters[p.name] = {p.expression, p.place};
    expand(*topScope, 0);
    return std::move(result);
}

void Flattener::expand(Scope& scope, int depth) {
    for (const Netlist::Card& card : scope.def->elements) {
        try {
            element(card, scope, depth);
        } catch (NetlistError& e) {
            e.at(card.place.file, card.place.line);
            throw;
        }
    }
}

void Flattener::useModel(Device& d, const std::string& name, const char* types, Scope& scope) {
    d.modelName = name;
    d.model = findModel(name, scope);
    if (!d.model) {
        if (isBuiltInModel(name)) return;
        throw NetlistError(NetlistError::UnknownModel, name, "unknown model " + name + " for " + d.name);
    }
    // types: the model types this device takes, separated by spaces.
    const std::string type = " " + d.model->type + " ";
    if (std::strstr((std::string(" ") + types + " ").c_str(), type.c_str()) == nullptr)
        syntax(name, "model " + name + " is of type " + d.model->type + ", which " + d.name + " cannot use");
    for (const auto& p : d.model->parameters) {
        try {
            d.modelValues.push_back({p.name, value(p.expression, scope, d.model->place)});
        } catch (NetlistError& e) {
            e.at(d.model->place.file, d.model->place.line);
            throw;
        }
    }
}

void Flattener::element(const Netlist::Card& card, Scope& scope, int depth) {
    const std::vector<std::string>& t = card.tokens;
    const std::string& name = t[0];
    const char kind = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
    Device d;
    d.kind = kind;
    d.name = scope.prefix + name;
    d.key = lower(d.name);
    d.place = card.place;
    d.text = card.text;
    auto node = [&](const std::string& token) -> std::string {
        if (token == "=" || token == "(" || token == ")" || token == ",")
            syntax(name, "'" + token + "' where " + name + " needs a node");
        const std::string n = lower(token);
        if (n == "0" || n == "gnd") return "0";
        for (const std::string& g : netlist.globals)
            if (g == n) return n;
        auto it = scope.pins.find(n);
        if (it != scope.pins.end()) return it->second;
        return scope.nodePrefix + n;
    };
    auto need = [&](size_t count, const char* form) {
        if (t.size() < count) syntax(name, name + " needs " + form);
    };
    auto number = [&](size_t i) { return value(t[i], scope, card.place); };
    auto isValue = [&](size_t i) { return i < t.size() && (parseSpiceNumber(t[i]).ok || t[i][0] == '{'); };
    // The value of the named instance parameter (area=, l=, w=) where the card has one.
    auto named = [&](const char* key, double& target) {
        for (size_t i = 1; i + 2 < t.size(); ++i)
            if (lower(t[i]) == key && t[i + 1] == "=") target = number(i + 2);
    };
    auto add = [&](Device& device) {
        if (result.devices.size() >= kMaxDevices)
            throw NetlistError(NetlistError::TooLarge, name, "more than 20000 devices after expanding subcircuits");
        result.devices.push_back(std::move(device));
    };

    switch (kind) {
    case 'r':
    case 'c':
    case 'l': {
        need(4, "two nodes and a value");
        d.nodes = {node(t[1]), node(t[2])};
        size_t at = 3;
        // R1 a b r=10k, C1 a b c=1n
        if (t.size() > 5 && t[4] == "=" && (lower(t[3]) == std::string(1, kind))) at = 5;
        if (t[at] == "=" || t[at] == "(" || t[at] == ")") syntax(name, name + " needs a value");
        d.value = number(at);
        add(d);
        return;
    }
    case 'd': {
        need(4, "two nodes and a model");
        d.nodes = {node(t[1]), node(t[2])};
        useModel(d, t[3], "d", scope);
        if (isValue(4)) d.area = number(4);
        named("area", d.area);
        add(d);
        return;
    }
    case 'q': {
        need(5, "three nodes and a model");
        d.nodes = {node(t[1]), node(t[2]), node(t[3])};
        size_t m = 4;
        // The four-node form: a substrate node before the model.
        if (!findModel(t[4], scope) && !isBuiltInModel(t[4]) && t.size() > 5 &&
            (findModel(t[5], scope) || isBuiltInModel(t[5]))) {
            d.spareNodes.push_back(node(t[4]));
            m = 5;
        }
        useModel(d, t[m], "npn pnp", scope);
        if (isValue(m + 1)) d.area = number(m + 1);
        named("area", d.area);
        add(d);
        return;
    }
    case 'j': {
        need(5, "three nodes and a model");
        d.nodes = {node(t[1]), node(t[2]), node(t[3])};
        useModel(d, t[4], "njf pjf", scope);
        if (isValue(5)) d.area = number(5);
        named("area", d.area);
        add(d);
        return;
    }
    case 'm': {
        need(6, "four nodes and a model");
        d.nodes = {node(t[1]), node(t[2]), node(t[3])};
        d.spareNodes.push_back(node(t[4]));
        useModel(d, t[5], "nmos pmos", scope);
        named("l", d.length);
        named("w", d.width);
        add(d);
        return;
    }
    case 'v': {
        need(3, "two nodes");
        d.nodes = {node(t[1]), node(t[2])};
        bool dc = false;
        double initial = 0;  // of a transient description, where no DC value is given
        for (size_t i = 3; i < t.size();) {
            const std::string w = lower(t[i]);
            if (w == "dc") {
                i += (i + 1 < t.size() && t[i + 1] == "=") ? 2 : 1;
                if (i < t.size()) {
                    d.value = number(i++);
                    dc = true;
                }
            } else if (w == "ac") {
                ++i;
                for (int k = 0; k < 2 && isValue(i); ++k) ++i;
            } else if (w == "sin" || w == "pulse" || w == "pwl" || w == "exp" || w == "sffm" || w == "am" ||
                       w == "trnoise" || w == "trrandom") {
                std::string description = t[i++];
                std::vector<size_t> args;
                const bool open = i < t.size() && t[i] == "(";
                if (open) ++i;
                while (i < t.size() && t[i] != ")" && (open || isValue(i))) {
                    if (t[i] != ",") {
                        args.push_back(i);
                        description += " " + t[i];
                    }
                    ++i;
                }
                if (open && i < t.size()) ++i;
                d.transient = description;
                // At time 0: SIN's offset, PULSE's and EXP's first value, PWL's first point.
                const size_t first = (w == "pwl") ? 1 : 0;
                if (args.size() > first && w != "trnoise" && w != "trrandom") initial = number(args[first]);
            } else if (!dc && isValue(i)) {
                d.value = number(i++);
                dc = true;
            } else {
                ++i;
            }
        }
        if (!dc) d.value = initial;
        add(d);
        return;
    }
    case 'e': {
        need(4, "two output nodes and what controls them");
        const std::string form = lower(t[3]);
        if (form == "value" || form == "poly" || form == "table" || form == "vol" || form == "laplace" ||
            form == "freq" || form == "cur")
            throw NetlistError(NetlistError::Unsupported, name,
                               name + ": only the linear form E n+ n- nc+ nc- gain is supported, not " + t[3]);
        need(6, "four nodes and a gain");
        d.nodes = {node(t[1]), node(t[2]), node(t[3]), node(t[4])};
        d.value = number(5);
        add(d);
        return;
    }
    case 'k': {
        need(4, "two inductors and a coupling");
        d.coupled[0] = lower(scope.prefix + t[1]);
        d.coupled[1] = lower(scope.prefix + t[2]);
        d.value = number(t[3] == "=" && t.size() > 4 ? 4 : 3);
        add(d);
        return;
    }
    case 'x': {
        // X1 n1 n2 ... name [params:] p=v ...
        size_t end = t.size();
        for (size_t i = 1; i < t.size(); ++i)
            if (lower(t[i]) == "params:" || (i + 1 < t.size() && t[i + 1] == "=")) {
                end = i;
                break;
            }
        if (end < 2) syntax(name, name + " needs nodes and a subcircuit name");
        const std::string sub = t[end - 1];
        std::vector<std::string> pins;
        for (size_t i = 1; i + 1 < end; ++i) {
            if (t[i] == "(" || t[i] == ")" || t[i] == ",") continue;
            pins.push_back(node(t[i]));
        }
        const KnownPart part = knownPart(sub);
        const Netlist::Subcircuit* def = findSubcircuit(sub, scope);
        if (part.kind != KnownPart::None) {
            d.part = part;
            d.modelName = sub;
            // Pins by the names the subcircuit gives them, where it is defined and they tell.
            d.nodes = pins;
            if (def && def->pins.size() != pins.size())
                syntax(name, name + " has " + std::to_string(pins.size()) + " nodes; subcircuit " + sub + " has " +
                                 std::to_string(def->pins.size()));
            if (def) d.pinNames = def->pins;
            add(d);
            return;
        }
        if (!def) throw NetlistError(NetlistError::UnknownSubcircuit, sub, "unknown subcircuit " + sub);
        if (def->pins.size() != pins.size())
            syntax(name, name + " has " + std::to_string(pins.size()) + " nodes; subcircuit " + def->name + " has " +
                             std::to_string(def->pins.size()));
        if (++instances > kMaxInstances)
            throw NetlistError(NetlistError::TooLarge, name, "more than 20000 subcircuit instances");
        if (depth + 1 > kMaxDepth)
            throw NetlistError(NetlistError::TooLarge, name, "subcircuits nested more than 32 deep at " + d.name);
        Scope inner;
        inner.def = def;
        inner.caller = &scope;
        inner.prefix = d.name + ".";
        inner.nodePrefix = d.key + ".";
        for (size_t i = 0; i < pins.size(); ++i) inner.pins[def->pins[i]] = pins[i];
        for (const auto& p : def->defaults) inner.parameters[p.name] = {p.expression, p.place};
        for (const auto& p : def->parameters) inner.parameters[p.name] = {p.expression, p.place};
        std::vector<std::string> rest(t.begin() + end, t.end());
        for (size_t i = 0; i < rest.size(); ++i) {
            if (lower(rest[i]) == "params:") continue;
            if (i + 2 < rest.size() && rest[i + 1] == "=") {
                const std::string key = lower(rest[i]);
                if (!inner.parameters.count(key))
                    syntax(rest[i], "subcircuit " + def->name + " has no parameter " + rest[i]);
                Entry e;
                e.place = card.place;
                e.known = true;
                e.value = value(rest[i + 2], scope, card.place);
                inner.parameters[key] = e;
                i += 2;
            } else
                syntax(rest[i], "expected name=value after the subcircuit name, found '" + rest[i] + "'");
        }
        expand(inner, depth + 1);
        return;
    }
    case 'b':
        throw NetlistError(NetlistError::Unsupported, name, name + ": behavioural sources (B) are not supported");
    case 'g':
        throw NetlistError(NetlistError::Unsupported, name,
                           name + ": voltage-controlled current sources (G) are not supported");
    case 'f':
        throw NetlistError(NetlistError::Unsupported, name,
                           name + ": current-controlled current sources (F) are not supported");
    case 'h':
        throw NetlistError(NetlistError::Unsupported, name,
                           name + ": current-controlled voltage sources (H) are not supported");
    case 'i':
        throw NetlistError(NetlistError::Unsupported, name, name + ": current sources (I) are not supported");
    case 't':
        throw NetlistError(NetlistError::Unsupported, name, name + ": transmission lines (T) are not supported");
    default:
        throw NetlistError(NetlistError::Unsupported, name,
                           name + ": elements of type " + std::string(1, static_cast<char>(std::toupper(kind))) +
                               " are not supported");
    }
}

} // namespace kelm
