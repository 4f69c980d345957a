#pragma once
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelm {

class Filter;

// The engine's table of built-in DSP element types.
class DSPElementFactory {
public:
    typedef std::function<Filter*()> Maker;
    static Filter* create(const std::string& typeName);
    static bool hasType(const std::string& typeName);
    static std::vector<std::string> typeNames();

private:
    static const std::unordered_map<std::string, Maker>& table();
};

} // namespace kelm
