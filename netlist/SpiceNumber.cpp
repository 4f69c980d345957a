#include "netlist/SpiceNumber.h"

#include <cctype>
#include <cmath>
#include <cstdlib>

namespace kelm {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// The mantissa and exponent at text[pos]: digits with an optional point and exponent.
bool readMantissa(const std::string& text, size_t& pos, double& value) {
    size_t p = pos;
    if (p < text.size() && (text[p] == '+' || text[p] == '-')) ++p;
    size_t digits = 0;
    while (p < text.size() && isDigit(text[p])) ++p, ++digits;
    if (p < text.size() && text[p] == '.') {
        ++p;
        while (p < text.size() && isDigit(text[p])) ++p, ++digits;
    }
    if (digits == 0) return false;
    if (p < text.size() && (text[p] == 'e' || text[p] == 'E')) {
        size_t q = p + 1;
        if (q < text.size() && (text[q] == '+' || text[q] == '-')) ++q;
        if (q < text.size() && isDigit(text[q])) {
            while (q < text.size() && isDigit(text[q])) ++q;
            p = q;
        }
    }
    value = std::strtod(text.substr(pos, p - pos).c_str(), nullptr);
    pos = p;
    return true;
}

// The scale of the suffix at text[pos] (1 where there is none); moves pos past it.
double readScale(const std::string& text, size_t& pos) {
    if (pos >= text.size()) return 1;
    auto follows = [&](const char* word) {
        size_t k = 0;
        for (; word[k]; ++k)
            if (pos + k >= text.size() || lower(text[pos + k]) != word[k]) return false;
        return true;
    };
    switch (lower(text[pos])) {
    case 't': ++pos; return 1e12;
    case 'g': ++pos; return 1e9;
    case 'k': ++pos; return 1e3;
    case 'u': ++pos; return 1e-6;
    case 'n': ++pos; return 1e-9;
    case 'p': ++pos; return 1e-12;
    case 'f': ++pos; return 1e-15;
    case 'a': ++pos; return 1e-18;
    case 'm':
        if (follows("meg")) {
            pos += 3;
            return 1e6;
        }
        if (follows("mil")) {
            pos += 3;
            return 25.4e-6;
        }
        ++pos;
        return 1e-3;
    default: return 1;
    }
}

// 2k2, 4u7, 1R5, 4M7, 3meg3: digits, one scale letter (or R for units), digits.
bool readSchematic(const std::string& t, double& value) {
    size_t p = 0;
    while (p < t.size() && isDigit(t[p])) ++p;
    if (p == 0 || p >= t.size()) return false;
    double scale = 0;
    size_t letters = 1;
    const char c = t[p];
    if (lower(c) == 'm' && p + 3 < t.size() && lower(t[p + 1]) == 'e' && lower(t[p + 2]) == 'g') {
        scale = 1e6;
        letters = 3;
    } else {
        switch (c) {
        case 'R': case 'r': scale = 1; break;
        case 'K': case 'k': scale = 1e3; break;
        case 'M': scale = 1e6; break;
        case 'm': scale = 1e-3; break;
        case 'U': case 'u': scale = 1e-6; break;
        case 'N': case 'n': scale = 1e-9; break;
        case 'P': case 'p': scale = 1e-12; break;
        case 'G': case 'g': scale = 1e9; break;
        case 'T': case 't': scale = 1e12; break;
        case 'F': case 'f': scale = 1e-15; break;
        default: return false;
        }
    }
    const size_t fraction = p + letters;
    if (fraction >= t.size()) return false;
    for (size_t k = fraction; k < t.size(); ++k)
        if (!isDigit(t[k])) return false;
    const std::string digits = t.substr(0, p) + "." + t.substr(fraction);
    value = std::strtod(digits.c_str(), nullptr) * scale;
    return true;
}

} // namespace

bool readSpiceNumber(const std::string& text, size_t& pos, double& value) {
    size_t p = pos;
    double mantissa = 0;
    if (!readMantissa(text, p, mantissa)) return false;
    value = mantissa * readScale(text, p);
    pos = p;
    return true;
}

SpiceNumber parseSpiceNumber(const std::string& token) {
    SpiceNumber n;
    size_t pos = 0;
    double mantissa = 0;
    if (!readMantissa(token, pos, mantissa)) return n;
    const double ngspice = mantissa * readScale(token, pos);
    // What follows is a unit: letters only. ngspice stops at the first character it does
    // not know and ignores the rest, digits too (2k2 is 2k to it).
    bool lettersOnly = true;
    for (size_t k = pos; k < token.size(); ++k)
        if (!std::isalpha(static_cast<unsigned char>(token[k]))) lettersOnly = false;
    if (!std::isfinite(ngspice)) return n;
    double schematic = 0;
    if (readSchematic(token, schematic)) {
        n.ok = true;
        n.value = schematic;
        n.schematic = schematic != ngspice;
        n.ngspiceValue = ngspice;
        return n;
    }
    if (!lettersOnly) return n;
    n.ok = true;
    n.value = n.ngspiceValue = ngspice;
    return n;
}

} // namespace kelm
