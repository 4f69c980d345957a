#include "netlist/ModelParameters.h"

#include <cstring>

namespace kelm {

namespace {

// How an area factor acts on a property.
enum Scaling { Same, Times, Divided };

struct Alias {
    const char* spice;
    const char* property;
    Scaling scaling;
};

const Alias kDiode[] = {{"is", "Is", Times},   {"js", "Is", Times},  {"n", "N", Same},     {"rs", "Rs", Divided},
                        {"bv", "Bv", Same},    {"ibv", "Ibv", Times}, {"cjo", "Cjo", Times}, {"cj0", "Cjo", Times},
                        {"cj", "Cjo", Times},  {"vj", "Vj", Same},   {"pb", "Vj", Same},   {"m", "M", Same},
                        {"mj", "M", Same},     {"fc", "Fc", Same},   {"tt", "Tt", Same}};

const Alias kBjt[] = {{"is", "Is", Times},   {"bf", "Bf", Same},    {"br", "Br", Same},    {"nf", "Nf", Same},
                      {"nr", "Nr", Same},    {"vaf", "Vaf", Same},  {"va", "Vaf", Same},   {"var", "Var", Same},
                      {"vb", "Var", Same},   {"ikf", "Ikf", Times}, {"ik", "Ikf", Times},  {"ikr", "Ikr", Times},
                      {"ise", "Ise", Times}, {"c2", "Ise", Times},  {"ne", "Ne", Same},    {"isc", "Isc", Times},
                      {"c4", "Isc", Times},  {"nc", "Nc", Same},    {"rb", "Rb", Divided}, {"rc", "Rc", Divided},
                      {"re", "Re", Divided}, {"cje", "Cje", Times}, {"vje", "Vje", Same},  {"pe", "Vje", Same},
                      {"mje", "Mje", Same},  {"me", "Mje", Same},   {"cjc", "Cjc", Times}, {"vjc", "Vjc", Same},
                      {"pc", "Vjc", Same},   {"mjc", "Mjc", Same},  {"mc", "Mjc", Same},   {"fc", "Fc", Same},
                      {"tf", "Tf", Same},    {"tr", "Tr", Same}};

const Alias kJfet[] = {{"beta", "Beta", Times}, {"vto", "Vto", Same},  {"vt0", "Vto", Same},   {"lambda", "Lambda", Same},
                       {"is", "Is", Times},     {"n", "N", Same},      {"rd", "Rd", Divided},  {"rs", "Rs", Divided},
                       {"cgs", "Cgs", Times},   {"cgd", "Cgd", Times}, {"pb", "Pb", Same},     {"fc", "Fc", Same}};

const Alias kMosfet[] = {{"kp", "Kp", Same}, {"vto", "Vto", Same}, {"vt0", "Vto", Same}, {"lambda", "Lambda", Same}};

// The SPICE defaults of the parameters an area factor scales where the card leaves them out.
struct Default {
    char kind;
    const char* property;
    double value;
};
const Default kScaledDefaults[] = {{'d', "Is", 1e-14}, {'q', "Is", 1e-16}, {'j', "Is", 1e-14}, {'j', "Beta", 1e-4}};

} // namespace

ModelProperties modelProperties(char kind, const std::vector<std::pair<std::string, double>>& parameters,
                                double area) {
    const Alias* table = nullptr;
    size_t size = 0;
    switch (kind) {
    case 'd': table = kDiode, size = sizeof kDiode / sizeof *kDiode; break;
    case 'q': table = kBjt, size = sizeof kBjt / sizeof *kBjt; break;
    case 'j': table = kJfet, size = sizeof kJfet / sizeof *kJfet; break;
    case 'm': table = kMosfet, size = sizeof kMosfet / sizeof *kMosfet; break;
    default: break;
    }
    ModelProperties out;
    auto put = [&](const std::string& name, double v) {
        for (auto& p : out.properties)
            if (p.first == name) {
                p.second = v;  // a later alias of the same parameter wins, as on the card
                return;
            }
        out.properties.push_back({name, v});
    };
    for (const auto& p : parameters) {
        const Alias* a = nullptr;
        for (size_t i = 0; i < size && !a; ++i)
            if (p.first == table[i].spice) a = &table[i];
        if (!a) {
            // The level and the temperatures say nothing the element could use, but the
            // level of a MOSFET does: the importer checks it before.
            if (p.first != "level") out.ignored.push_back(p.first);
            continue;
        }
        const double v = a->scaling == Times ? p.second * area : a->scaling == Divided ? p.second / area : p.second;
        put(a->property, v);
    }
    if (area != 1) {
        for (const Default& d : kScaledDefaults) {
            if (d.kind != kind) continue;
            bool given = false;
            for (auto& p : out.properties) given = given || p.first == d.property;
            if (!given) put(d.property, d.value * area);
        }
    }
    return out;
}

} // namespace kelm
