#pragma once
#include "circuit/Component.h"

namespace kelm {

// Voltage-controlled voltage source: output node := Gain * V(input).
class IdealAmplifier : public Component {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    bool hasRhs() override { return true; }
    bool isFixedVoltage() override { return true; }
    scalar* getRhs(scalar* x) override;
    // One port (the input) without current; the output a forced voltage of it.
    const PortLayout* portLayout() const override { return &layout; }
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override {
        i[0] = 0;
        di[0] = 0;
        f[0] = static_cast<double>(gain) * v[0];
        df[0] = gain;
    }
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

private:
    scalar gain = 0;
    scalar rhs[2] = {0, 0};
    PortLayout layout;
};

} // namespace kelm
