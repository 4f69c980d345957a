#include "dsp/DSPContext.h"

#include "dsp/Filter.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

DSPContext::DSPContext() { sampleRate = 0; }

DSPContext::~DSPContext() {
    for (Filter* f : elements) delete f;
}

void DSPContext::setSampleRate(scalar rate) {
    sampleRate = rate;
    for (Filter* f : elements) f->sampleRateChanged(rate);
}

Element* DSPContext::getElement(const std::string& name) {
    auto it = byName.find(name);
    if (it == byName.end()) throw InvalidArgumentException("DSOContext: Cannot find element with name " + name);
    return it->second;
}

void DSPContext::addElement(Element* element) {
    Filter* filter = dynamic_cast<Filter*>(element);
    if (!filter) {
        delete element;
        throw InvalidArgumentException("DSPContext: element is not a Filter");
    }
    if (!byName.emplace(filter->name(), filter).second) {
        std::string name = filter->name();
        delete filter;
        throw KELMException("DSPContext: Duplicate element name: " + name);
    }
    elements.push_back(filter);
}

} // namespace kelm
