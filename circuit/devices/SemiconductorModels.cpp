#include "circuit/devices/SemiconductorModels.h"

#include <sstream>
#include <unordered_map>

#include "engine/InvalidArgumentException.h"

namespace kelm {

namespace {

// One card per line: part, SPICE type, parameters. The values are those of the published
// cards; their parameters that these models do not have are left out: temperature
// coefficients (Xti, Eg, Xtb; the models run at the cards' 27 degrees C), the Gummel-Poon
// transit-time modulation (Xtf, Vtf, Itf), a diode's recombination current (Isr, Nr) and
// high-injection knee (Ikf), a JFET's impact ionisation (Alpha, Vk) and gate grading (M:
// the level-1 JFET grades its gate junctions by 0.5), and bookkeeping (Iave, Vpk, mfg).
// tests/data/make_device_references.py reads this table to give ngspice the same cards.
struct Entry {
    const char* name;
    const char* kind;
    const char* parameters;
};

const Entry kCards[] = {
    // Small-signal silicon diodes.
    {"1N4148", "D", "Is=4.352e-9 N=1.906 Rs=0.6458 Bv=110 Ibv=1e-4 Cjo=7.048e-13 Vj=0.869 M=0.03 Fc=0.5 Tt=3.48e-9"},
    {"1N914", "D", "Is=2.52e-9 N=1.752 Rs=0.568 Cjo=4e-12 M=0.4 Tt=2e-8"},
    // Germanium point-contact diode.
    {"1N34A", "D", "Is=2e-7 N=1.3 Rs=7 Bv=75 Ibv=0.018 Cjo=5e-13 Vj=0.1 M=0.27"},
    // Rectifier and Schottky rectifier.
    {"1N4001", "D", "Is=1.411e-8 N=1.984 Rs=0.03389 Cjo=2.589e-11 M=0.44 Vj=0.3245 Fc=0.5 Bv=75 Ibv=1e-5 Tt=5.7e-6"},
    {"1N5817", "D", "Is=3.17e-5 N=1.373 Rs=0.051 Cjo=1.9e-10 M=0.3"},
    // Light-emitting diodes, red and green.
    {"LED_RED", "D", "Is=9.32e-11 N=3.73 Rs=0.042 Bv=4 Ibv=1e-5 Cjo=2.97e-12 Vj=0.75 M=0.333 Tt=4.32e-6"},
    {"LED_GREEN", "D", "Is=9.32e-11 N=4.61 Rs=0.042 Bv=4 Ibv=1e-5 Cjo=2.97e-12 Vj=0.75 M=0.333 Tt=4.32e-6"},
    // Silicon small-signal transistors.
    {"2N3904", "NPN",
     "Is=6.734e-15 Bf=416.4 Br=0.7371 Vaf=74.03 Ikf=0.06678 Ise=6.734e-15 Ne=1.259 Isc=0 Nc=2 Ikr=0 Rb=10 Rc=1 "
     "Cje=4.493e-12 Vje=0.75 Mje=0.2593 Cjc=3.638e-12 Vjc=0.75 Mjc=0.3085 Fc=0.5 Tf=3.012e-10 Tr=2.395e-7"},
    {"2N3906", "PNP",
     "Is=1.41e-15 Bf=180.7 Br=4.977 Vaf=18.7 Ikf=0.08 Ise=0 Ne=1.5 Isc=0 Nc=2 Ikr=0 Rb=10 Rc=2.5 "
     "Cje=8.063e-12 Vje=0.75 Mje=0.3677 Cjc=9.728e-12 Vjc=0.75 Mjc=0.5776 Fc=0.5 Tf=1.793e-10 Tr=3.342e-8"},
    {"2N5088", "NPN",
     "Is=5.911e-15 Bf=1122 Br=1.271 Vaf=62.37 Ikf=0.01492 Ise=5.911e-15 Ne=1.394 Isc=0 Nc=2 Ikr=0 Rb=10 Rc=1.61 "
     "Cje=4.973e-12 Vje=0.75 Mje=0.4146 Cjc=4.017e-12 Vjc=0.75 Mjc=0.3174 Fc=0.5 Tf=8.217e-10 Tr=4.673e-9"},
    {"2N5089", "NPN",
     "Is=5.911e-15 Bf=1434 Br=1.262 Vaf=62.37 Ikf=0.0154 Ise=5.911e-15 Ne=1.421 Isc=0 Nc=2 Ikr=0 Rb=10 Rc=1.61 "
     "Cje=4.973e-12 Vje=0.75 Mje=0.4146 Cjc=4.017e-12 Vjc=0.75 Mjc=0.3174 Fc=0.5 Tf=8.223e-10 Tr=4.671e-9"},
    {"2N2222", "NPN",
     "Is=1.434e-14 Bf=255.9 Br=6.092 Vaf=74.03 Ikf=0.2847 Ise=1.434e-14 Ne=1.307 Isc=0 Nc=2 Ikr=0 Rb=10 Rc=1 "
     "Cje=2.201e-11 Vje=0.75 Mje=0.377 Cjc=7.306e-12 Vjc=0.75 Mjc=0.3416 Fc=0.5 Tf=4.111e-10 Tr=4.691e-8"},
    // The BC549C is the BC109C's die in a plastic case: one card for both.
    {"BC549C", "NPN",
     "Is=1.8e-14 Bf=400 Nf=0.9955 Vaf=80 Ikf=0.14 Ise=5e-14 Ne=1.46 Br=35.5 Nr=1.005 Var=12.5 Ikr=0.03 "
     "Isc=1.72e-13 Nc=1.27 Rb=0.56 Re=0.6 Rc=0.25 Cje=1.3e-11 Vje=0.58 Mje=0.28 Cjc=4e-12 Vjc=0.54 Mjc=0.3 "
     "Tf=6.4e-10 Tr=5e-8"},
    {"BC109C", "NPN",
     "Is=1.8e-14 Bf=400 Nf=0.9955 Vaf=80 Ikf=0.14 Ise=5e-14 Ne=1.46 Br=35.5 Nr=1.005 Var=12.5 Ikr=0.03 "
     "Isc=1.72e-13 Nc=1.27 Rb=0.56 Re=0.6 Rc=0.25 Cje=1.3e-11 Vje=0.58 Mje=0.28 Cjc=4e-12 Vjc=0.54 Mjc=0.3 "
     "Tf=6.4e-10 Tr=5e-8"},
    // Germanium PNP, as fitted to a measured AC128 for real-time circuit simulation (Holmes,
    // Holters and van Walstijn, DAFx 2017); their constant 100 pF collector-base capacitance as
    // an ungraded junction capacitance (Mjc=0).
    {"AC128", "PNP",
     "Is=2.066e-5 Bf=229.6 Br=14.66 Nf=1.133 Nr=1.14 Vaf=19.68 Var=88.28 Ikf=0.463 Ikr=0.2415 Ise=2.19e-6 "
     "Isc=7.546e-6 Ne=1.796 Nc=1.364 Rb=1.885 Re=0.3064 Rc=1.727e-6 Cjc=1e-10 Mjc=0"},
    // N-channel JFETs.
    {"2N5457", "NJF",
     "Beta=1.125e-3 Vto=-1.372 Lambda=2.3e-3 Is=3.357e-14 N=1 Rd=1 Rs=1 Cgd=1.6e-12 Cgs=2.414e-12 Pb=1 Fc=0.5"},
    {"J201", "NJF",
     "Beta=1.621e-3 Vto=-0.6 Lambda=2.236e-3 Is=1.145e-13 N=1 Rd=1 Rs=1 Cgd=4.667e-12 Cgs=2.992e-12 Pb=0.5 Fc=0.5"},
    // N-channel enhancement MOSFETs: the level-1 transistors of the manufacturers' subcircuits
    // (W and L at SPICE's defaults, so that W/L is 1).
    {"2N7000", "NMOS", "Kp=0.296 Vto=2.474 Lambda=0"},
    {"BS170", "NMOS", "Kp=0.1233 Vto=1.824 Lambda=0"},
};

const std::unordered_map<std::string, SemiconductorModels::Card>& library() {
    static const std::unordered_map<std::string, SemiconductorModels::Card> cards = [] {
        std::unordered_map<std::string, SemiconductorModels::Card> m;
        for (const Entry& e : kCards) {
            SemiconductorModels::Card card;
            card.kind = e.kind;
            std::istringstream in(e.parameters);
            std::string token;
            while (in >> token) {
                const size_t eq = token.find('=');
                card.parameters[token.substr(0, eq)] = token.substr(eq + 1);
            }
            m.emplace(e.name, card);
        }
        return m;
    }();
    return cards;
}

} // namespace

const SemiconductorModels::Card* SemiconductorModels::find(const std::string& name) {
    auto it = library().find(name);
    return it == library().end() ? nullptr : &it->second;
}

PropertyMap SemiconductorModels::resolve(const PropertyMap& own, const std::string& element,
                                         const std::string& deviceType, const char* kindA, const char* kindB,
                                         std::string& kind) {
    PropertyMap merged = own;
    kind.clear();
    std::string model;
    if (!own.readOptional("Model", model)) return merged;
    const Card* card = find(model);
    if (!card)
        throw InvalidArgumentException("Unknown " + deviceType + " model: " + model + ". " + deviceType +
                                       " name=" + element);
    if (card->kind != kindA && card->kind != kindB)
        throw InvalidArgumentException("Model " + model + " is a " + card->kind + " model, not a " + deviceType +
                                       " model. " + deviceType + " name=" + element);
    kind = card->kind;
    for (const auto& entry : card->parameters) merged.insert(entry);  // keeps the element's own values
    return merged;
}

} // namespace kelm
