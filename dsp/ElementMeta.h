#pragma once
#include <memory>
#include <string>

namespace kelm {

// Port table of a Filter class: turns the port names of the system
// description into input and output numbers.
class ElementMeta {
public:
    virtual ~ElementMeta() {}
    virtual int inputIndex(const std::string& portName) = 0;
    virtual int numberOfInputs() = 0;
    virtual int outputIndex(const std::string& portName);
    virtual int numberOfOutputs() { return 1; }
};

typedef std::shared_ptr<ElementMeta> ElementMetaPtr;

} // namespace kelm
