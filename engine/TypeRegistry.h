#pragma once
#include <algorithm>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelm {

// A table from the type names of a system description to a value V, usually a maker of
// the element or graph of that type. The layers above the engine fill their own tables
// (each layer's register function); the parsers look names up here and throw their own
// messages for an unknown one.
template <typename V>
class TypeRegistry {
public:
    // Adds or replaces the entry of `name`.
    void add(const std::string& name, V value) {
        std::lock_guard<std::mutex> lock(mutex);
        entries[name] = std::move(value);
    }
    bool has(const std::string& name) const {
        std::lock_guard<std::mutex> lock(mutex);
        return entries.count(name) != 0;
    }
    // The entry of `name` in `value`; false, with `value` untouched, for an unknown name.
    bool find(const std::string& name, V& value) const {
        std::lock_guard<std::mutex> lock(mutex);
        auto it = entries.find(name);
        if (it == entries.end()) return false;
        value = it->second;
        return true;
    }
    std::vector<std::string> names() const {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::string> list;
        for (auto& entry : entries) list.push_back(entry.first);
        std::sort(list.begin(), list.end());
        return list;
    }

private:
    mutable std::mutex mutex;
    std::unordered_map<std::string, V> entries;
};

} // namespace kelm
