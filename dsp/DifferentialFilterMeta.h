#pragma once
#include "dsp/ElementMeta.h"

namespace kelm {

// Ports of a DifferentialFilter: "plus" (0), "minus" (1) and "out".
class DifferentialFilterMeta : public ElementMeta {
public:
    int inputIndex(const std::string& portName) override;
    int numberOfInputs() override { return inputs; }
    static const ElementMetaPtr& instance();

private:
    int inputs = 2;
};

} // namespace kelm
