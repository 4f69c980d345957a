#include "plugin/core/EffectCore.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace kelm {

namespace {

const char* const kStateHeader = "KelmParameters 1";

// The number at the start of a text ("+3.2 dB", "-inf", "4x"); false when there is none. A
// zero written with a minus ("-0.0", a value just below zero rounded) comes just below 0.
bool leadingNumber(const std::string& text, double& number) {
    const char* start = text.c_str();
    char* end = nullptr;
    number = std::strtod(start, &end);
    if (number == 0 && std::signbit(number)) number = -1e-300;
    return end != start && !std::isnan(number);
}

} // namespace

float EffectCore::parameterDefault(int) const { return std::nanf(""); }

bool EffectCore::parameterFromText(int index, const std::string& text, float& value) const {
    if (index < 0 || index >= numberOfParameters()) return false;
    const int positions = parameterPositions(index);
    if (positions > 1) {
        for (int k = 0; k < positions; ++k) {
            const float x = static_cast<float>(k) / (positions - 1);
            if (parameterText(index, x) == text) {
                value = x;
                return true;
            }
        }
        return false;  // a stepped parameter takes its positions' texts only
    }
    double wanted = 0;
    if (!leadingNumber(text, wanted)) return false;
    auto numberAt = [&](float x) {
        double n = 0;
        return leadingNumber(parameterText(index, x), n) ? n : std::nan("");
    };
    const double low = numberAt(0.0f), high = numberAt(1.0f);
    if (std::isnan(low) || std::isnan(high) || low == high) return false;
    const bool rising = high > low;
    // The first value whose text reaches the number: its text is the one asked for when
    // that text is reachable at all.
    float a = 0.0f, b = 1.0f;
    if (rising ? wanted <= low : wanted >= low) {
        value = 0.0f;
    } else if (rising ? wanted >= high : wanted <= high) {
        value = 1.0f;
    } else {
        for (int i = 0; i < 40 && b - a > 1e-7f; ++i) {
            const float m = 0.5f * (a + b);
            const double n = numberAt(m);
            if (rising ? n >= wanted : n <= wanted)
                b = m;
            else
                a = m;
        }
        value = b;
    }
    return true;
}

std::string EffectCore::getState() const {
    std::ostringstream s;
    s << kStateHeader << "\n";
    char number[32];
    for (int i = 0; i < numberOfParameters(); ++i) {
        std::snprintf(number, sizeof number, "%.9g", getParameter(i));
        s << i << " " << number << " " << parameterName(i) << "\n";
    }
    return s.str();
}

bool EffectCore::setState(const void* data, size_t size) {
    if (!data || size == 0) return false;
    std::istringstream s(std::string(static_cast<const char*>(data), size));
    std::string line;
    if (!std::getline(s, line) || line != kStateHeader) return false;
    // Every line is read before any value is set: a broken state changes nothing.
    std::vector<std::pair<int, float>> values;
    while (std::getline(s, line)) {
        if (line.empty()) continue;
        std::istringstream fields(line);
        int index = -1;
        std::string text;
        if (!(fields >> index >> text) || index < 0 || index >= numberOfParameters()) return false;
        char* end = nullptr;
        const float v = std::strtof(text.c_str(), &end);
        if (end == text.c_str() || *end) return false;
        values.emplace_back(index, v);
    }
    for (const auto& v : values) setParameter(v.first, v.second);
    return true;
}

} // namespace kelm
