#pragma once
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Recursive filter of any order ("Order"), computed with dot products over
// time-ordered windows; coefficients are kept reversed.
class Iir : public SingleOutputFilter {
public:
    ~Iir() override;
    const char* className() const override { return "Iir"; }
    scalar process(scalar) override { return 0.0f; }
    scalar* process(scalar* in, size_t n) override;
    void process(const scalar* in, scalar* out, size_t n) override;
    using SingleOutputFilter::process;
    void sampleRateChanged(scalar) override {}
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    void setMaxBlockSize(int n) override;
    void reset() override;
    void propertyChanged(const std::string& name, scalar value) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;

    virtual void setA(const ScalarVector& a);
    virtual void setB(const ScalarVector& b);
    virtual void setOrder(int order);
    int getOrder() const { return taps - 1; }

protected:
    void readProperties(const PropertyMap& p) override;

private:
    void allocateHistories();

    int taps = 0;
    ScalarVector aReversed;
    ScalarVector bReversed;
    scalar* xHistory = nullptr;
    scalar* yHistory = nullptr;
};

} // namespace kelm
