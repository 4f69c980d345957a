#pragma once
#include "dsp/ElementMeta.h"

namespace kelm {

// Ports of a Switch: "in_0" ... "in_<n-1>" and "out".
class SwitchMeta : public ElementMeta {
public:
    int inputIndex(const std::string& portName) override;
    int numberOfInputs() override { return inputs; }
    void setNumberOfInputs(int n) { inputs = n; }

private:
    int inputs = -1;
};

} // namespace kelm
