#pragma once
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Context.h"

namespace kelm {

class Filter;

// Registry of the Filter elements of one DSPGraph; owns them.
class DSPContext : public Context {
public:
    DSPContext();
    ~DSPContext() override;
    void setSampleRate(scalar rate) override;
    Element* getElement(const std::string& name) override;
    void addElement(Element* element) override;

    std::vector<Filter*> elements;

private:
    std::unordered_map<std::string, Filter*> byName;
};

} // namespace kelm
