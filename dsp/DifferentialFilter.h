#pragma once
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// (plus - minus) * gain, where one of the two ports may be a constant.
class DifferentialFilter : public SingleOutputFilter {
public:
    DifferentialFilter();
    const char* className() const override { return "DifferentialFilter"; }
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;
    scalar process(scalar) override { notSupported(); }
    scalar* process(scalar*, size_t) override { notSupported(); }
    void process(const scalar*, scalar*, size_t) override { notSupported(); }
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    ElementMetaPtr getMeta() override;
    void reset() override {}

protected:
    void readProperties(const PropertyMap& p) override;

private:
    scalar gain = 1.0f;
    int plusIndex;
    int minusIndex;
    std::string constantNode;
    int constantIndex = -1;
    scalar constantValue = 0.0f;
    bool hasConstant = false;
};

} // namespace kelm
