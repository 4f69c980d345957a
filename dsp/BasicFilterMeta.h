#pragma once
#include "dsp/ElementMeta.h"

namespace kelm {

// Ports of a one-input filter: "in" and "out".
class BasicFilterMeta : public ElementMeta {
public:
    int inputIndex(const std::string& portName) override;
    int numberOfInputs() override { return 1; }
    // The one process-wide instance.
    static const ElementMetaPtr& instance();
};

} // namespace kelm
