#pragma once
// Lenient reading of solver properties: the longest leading decimal number
// counts, and a text without one reads as 0.
#include <cstdlib>
#include <string>

#include "engine/InvalidArgumentException.h"
#include "engine/PropertyMap.h"

namespace kelm {
namespace solverprops {

inline float leadingFloat(const std::string& s) { return std::strtof(s.c_str(), nullptr); }
inline int leadingInt(const std::string& s) { return static_cast<int>(std::strtol(s.c_str(), nullptr, 10)); }

template <typename T>
inline bool read(const PropertyMap& p, const std::string& key, T& target) {
    auto it = p.find(key);
    if (it == p.end()) return false;
    target = static_cast<T>(std::is_integral<T>::value ? leadingInt(it->second) : leadingFloat(it->second));
    return true;
}

template <typename T>
inline void require(const PropertyMap& p, const std::string& key, T& target, const std::string& missing) {
    if (!read(p, key, target)) throw InvalidArgumentException(missing);
}

} // namespace solverprops
} // namespace kelm
