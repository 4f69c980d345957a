#pragma once
#include "dsp/SingleOutputFilter.h"
#include "math/TableIndex.h"

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

    // The curve at x, as process(scalar) gives it, for callers that look up
    // sample by sample without a virtual call. The table must not be empty.
    scalar valueAt(scalar x) const { return curve(table->data(), static_cast<int>(table->size()), x); }
    // valueAt for n samples at once, to the bit the same, faster. The table must not be empty.
    void valuesAt(const scalar* in, scalar* out, size_t n) const;

protected:
    void readProperties(const PropertyMap& p) override;

private:
    // Linear interpolation between the entries around x; the first cell and
    // everything below it give the first entry, the top saturates.
    // The flat ends are answered before any table access, so a caller whose next
    // input waits on this value (a feedback loop) need not wait for the loads there.
    scalar curve(const scalar* t, int n, scalar x) const {
        const scalar d = x - vinMin;
        const scalar position = inverseDeltaV * d;
        if (!(position >= flatBelow)) return t[0];  // NaN too, as tableIndex treats it
        if (position >= flatAbove) return t[n - 1];
        const int i = tableIndex(position, -1, n);
        if (i <= 0) return t[0];
        if (i >= n - 1) return t[n - 1];
        const scalar y0 = t[i], y1 = t[i + 1];
        if (y0 == y1) return y0;
        return y0 + ((y1 - y0) * (d - static_cast<scalar>(i) * deltaV)) * inverseDeltaV;
    }

    // Finds the flat ends of the table: entries equal to the first (or last) to the bit.
    void findFlatEnds();

    scalar vinMin = 0;
    scalar vinMax = 0;
    scalar inverseDeltaV = 1;
    scalar deltaV = 1;
    ScalarVectorPtr table;
    // Grid positions (input - VinMin) / DeltaV below which the curve is the first entry
    // and from which on it is the last, whatever the interpolation would do there.
    scalar flatBelow = 0;
    scalar flatAbove = 0;
};

} // namespace kelm
