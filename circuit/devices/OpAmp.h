#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// Ideal operational amplifier: nodes first input, output, second input; a
// virtual short between the inputs and an output of unlimited current.
class OpAmp : public Component {
public:
    OpAmp();
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar** getB() override { return bStamp.rows(); }
    scalar** getC() override { return cStamp.rows(); }
    int getNumberOfExtraVariables() override { return 1; }

private:
    Stamp bStamp;
    Stamp cStamp;
};

} // namespace kelm
