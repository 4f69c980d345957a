#pragma once
#include "circuit/Component.h"
#include "circuit/Stamp.h"

namespace kelm {

// Linear voltage-controlled voltage source: nodes out+, out-, in+, in-;
// V(out+, out-) = Gain * V(in+, in-). Its output current is an extra unknown, so the
// whole relation sits in the matrix and any gain, op-amp gains included, solves in one
// step of a Newton iteration.
class VCVS : public Component {
public:
    VCVS() : bStamp(4, 1), cStamp(1, 4) {}
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar** getB() override { return bStamp.rows(); }
    scalar** getC() override { return cStamp.rows(); }
    int getNumberOfExtraVariables() override { return 1; }
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

private:
    void setGain(scalar g);

    Stamp bStamp;
    Stamp cStamp;
};

} // namespace kelm
