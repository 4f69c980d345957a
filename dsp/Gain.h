#pragma once
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Multiplies its input by a factor (property "Gain", also at run time).
class Gain : public SingleOutputFilter {
public:
    const char* className() const override { return "Gain"; }
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;
    scalar process(scalar) override { notSupported(); }
    scalar* process(scalar*, size_t) override { notSupported(); }
    void process(const scalar* in, scalar* out, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    void reset() override {}
    scalar getGain() const { return gain; }

protected:
    void readProperties(const PropertyMap& p) override;

private:
    scalar gain = 1.0f;
};

} // namespace kelm
