#pragma once
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "netlist/KnownParts.h"
#include "netlist/Netlist.h"

namespace kelm {

// Expands a netlist's subcircuits into one flat list of devices, every value evaluated:
// parameters resolve as ngspice resolves them (the .param lines of a scope by name, the
// last definition winning, each evaluated when first needed; an instance's parameters in
// the caller's scope, a subcircuit's defaults and .param lines in the instance's, and a
// name not found there looked up in the caller's scopes up to the top level). Nodes and
// names inside an instance take its path (node x1.a, element X1.R2); 0, gnd and .global
// nodes are shared. X instances of tube and op-amp subcircuits stay single devices.
class Flattener {
public:
    struct Device {
        char kind = 0;  // r c l d q j m v e k, or x for a tube or op-amp
        std::string name;  // as written, with its instance path: X1.R2
        std::string key;   // lower case
        std::vector<std::string> nodes;       // lower case; "0" is ground
        std::vector<std::string> spareNodes;  // connected in the netlist, not passed on (supplies, substrate, body)
        double value = 0;  // resistance, capacitance, inductance, gain, DC voltage or coupling
        std::string modelName;
        const Netlist::Model* model = nullptr;  // null for a built-in model
        std::vector<std::pair<std::string, double>> modelValues;  // the card's parameters, lower case
        double area = 1;
        double width = 1e-4, length = 1e-4;  // MOSFET, metres (ngspice's defaults)
        KnownPart part;                       // for x
        std::vector<std::string> pinNames;    // x: the pins as its subcircuit declares them, where it does
        std::string coupled[2];               // k: the inductors' keys
        std::string transient;                // v: the transient description left out
        Netlist::Place place;
        std::string text;
    };
    struct Result {
        std::vector<Device> devices;
        std::vector<Netlist::Note> notes;
    };

    explicit Flattener(const Netlist& netlist);
    ~Flattener();
    // Throws NetlistError at the card at fault.
    Result flatten();

    // The value of one token or expression text in the top-level scope (for tests and tools).
    double topLevelValue(const std::string& text);

private:
    struct Scope;
    struct Entry;
    void expand(Scope& scope, int depth);
    void element(const Netlist::Card& card, Scope& scope, int depth);
    double value(const std::string& text, Scope& scope, const Netlist::Place& place);
    bool lookup(const std::string& name, Scope& scope, double& result);
    const Netlist::Model* findModel(const std::string& name, const Scope& scope) const;
    const Netlist::Subcircuit* findSubcircuit(const std::string& name, const Scope& scope) const;
    void useModel(Device& d, const std::string& name, const char* types, Scope& scope);

    const Netlist& netlist;
    Result result;
    std::unique_ptr<Scope> topScope;
    size_t instances = 0;    // subcircuit instances expanded so far
    int evaluating = 0;      // parameters being evaluated, one inside another
};

} // namespace kelm
