#pragma once
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelm {

class Component;

// The engine's table of built-in circuit component types.
class ComponentFactory {
public:
    typedef std::function<Component*()> Maker;
    static Component* create(const std::string& typeName);
    static bool hasType(const std::string& typeName);
    static std::vector<std::string> typeNames();

private:
    static const std::unordered_map<std::string, Maker>& table();
};

} // namespace kelm
