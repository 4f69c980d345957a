#include "netlist/KnownParts.h"

#include <cctype>

namespace kelm {

namespace {

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

} // namespace

KnownPart knownPart(const std::string& subcircuitName) {
    const std::string n = upper(subcircuitName);
    // Each tube name with the engine's type it maps to.
    static const struct {
        const char* name;
        KnownPart::Kind kind;
        const char* type;
    } tubes[] = {
        {"12AX7", KnownPart::Triode, "12AX7"},     {"ECC83", KnownPart::Triode, "12AX7"},
        {"12AY7", KnownPart::Triode, "12AY7"},     {"12AT7", KnownPart::Triode, "12AT7"},
        {"ECC81", KnownPart::Triode, "12AT7"},     {"12AU7", KnownPart::Triode, "12AU7"},
        {"ECC82", KnownPart::Triode, "12AU7"},     {"6SL7", KnownPart::Triode, "6SL7"},
        {"6SN7", KnownPart::Triode, "6SN7"},       {"EL34", KnownPart::Pentode, "JJEL34"},
        {"JJEL34", KnownPart::Pentode, "JJEL34"},  {"5881", KnownPart::Pentode, "5881"},
        {"6L6GC", KnownPart::Pentode, "GE6L6GC"},  {"GE6L6GC", KnownPart::Pentode, "GE6L6GC"},
        {"6L6", KnownPart::Pentode, "GE6L6GC"},    {"KT66", KnownPart::Pentode, "KT66"},
        {"6V6GT", KnownPart::Pentode, "GE6V6GT"},  {"GE6V6GT", KnownPart::Pentode, "GE6V6GT"},
        {"6V6", KnownPart::Pentode, "6V6"},        {"EF86", KnownPart::Pentode, "EF86"},
        {"EL84", KnownPart::Pentode, "EL84"},
    };
    for (const auto& t : tubes)
        if (n == t.name) return {t.kind, t.type};
    static const char* const opAmps[] = {"OPAMP",  "TL071",  "TL072",  "TL074",   "TL081",  "TL082",  "TL084",
                                         "JRC4558", "NJM4558", "RC4558", "MC4558", "LM741",  "UA741",  "LM358",
                                         "LM324",  "NE5532", "NE5534", "OPA2134", "LF353",  "CA3130", "TL061"};
    for (const char* o : opAmps)
        if (n == o) return {KnownPart::OpAmp, ""};
    return {};
}

bool isBuiltInModel(const std::string& name) {
    static const char* const models[] = {"1N4148", "1N914", "1N34A", "1N4001", "1N5817", "LED_RED", "LED_GREEN",
                                         "2N3904", "2N3906", "2N5088", "2N5089", "2N2222", "BC109C", "BC549C",
                                         "AC128",  "2N5457", "J201",   "2N7000", "BS170"};
    const std::string n = upper(name);
    for (const char* m : models)
        if (n == m) return true;
    return false;
}

} // namespace kelm
