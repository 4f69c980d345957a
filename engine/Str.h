#pragma once
// Message building: values are printed the way a default text stream prints them.
#include <sstream>
#include <string>

namespace kelm {

inline void strAppend(std::ostringstream&) {}
template <typename T, typename... Rest>
inline void strAppend(std::ostringstream& os, const T& v, const Rest&... rest) {
    os << v;
    strAppend(os, rest...);
}

// Concatenates all arguments as a default std::ostream would print them.
template <typename... Args>
inline std::string str(const Args&... args) {
    std::ostringstream os;
    strAppend(os, args...);
    return os.str();
}

} // namespace kelm
