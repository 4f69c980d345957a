#pragma once
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// A memoryless curve: each sample (volts) maps through a table of output
// voltages on a uniform grid VinMin + i*DeltaV; flat below the second entry,
// saturating at the last.
class LookupTableFilter : public SingleOutputFilter {
public:
    LookupTableFilter() : table(std::make_shared<ScalarVector>()) {}
    const char* className() const override { return "LookupTableFilter"; }
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;
    using Filter::propertyChanged;
    scalar process(scalar in) override;
    scalar* process(scalar*, size_t) override { return nullptr; }
    void process(const scalar* in, scalar* out, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    void reset() override {}
    const ScalarVectorPtr& getTable() const { return table; }

protected:
    void readProperties(const PropertyMap& p) override;

private:
    int inputIndex = 0;
    scalar vinMin = 0;
    scalar vinMax = 0;
    scalar inverseDeltaV = 1;
    scalar deltaV = 1;
    ScalarVectorPtr table;
};

} // namespace kelm
