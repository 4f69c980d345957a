#pragma once
#include <functional>
#include <string>
#include <unordered_map>

namespace kelm {

// The built-in tube parameter sets: type name to property name to value text.
class TubeTypes {
public:
    typedef std::unordered_map<std::string, std::string> Parameters;
    typedef std::unordered_map<std::string, std::function<const Parameters&()>> Table;
    // "12AX7", "12AY7", "12AT7", "12AU7", "6SL7", "6SN7"
    static const Table& triodes();
    // "JJEL34", "5881", "GE6L6GC", "KT66", "GE6V6GT", "6V6", "EF86", "EL84"
    static const Table& pentodes();
};

} // namespace kelm
