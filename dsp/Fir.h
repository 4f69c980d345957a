#pragma once
#include "dsp/AlignedVector.h"
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Direct-form FIR filter of at most 256 taps ("Coefficients"), laid out in
// groups of four taps.
class Fir : public SingleOutputFilter {
public:
    static const unsigned kMaxTaps = 256;
    Fir();
    ~Fir() override;
    const char* className() const override { return "Fir"; }
    scalar process(scalar in) override;
    scalar* process(scalar* in, size_t n) override;
    void process(const scalar* in, scalar* out, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    void setMaxBlockSize(int n) override;
    void reset() override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;
    using Filter::propertyChanged;

    virtual void setCoefficients(const PropertyMap& properties);
    virtual void setCoefficients(const scalar* taps, unsigned n);
    unsigned getTaps() const { return taps; }

protected:
    void readProperties(const PropertyMap& p) override { setCoefficients(p); }
    void allocate(int n);
    // Sum of the taps against the history ending at position end (the newest sample).
    scalar convolveAt(const scalar* newest) const;
    void shift(size_t n);

    int inputIndex = 0;
    unsigned groups = 0;
    unsigned taps = 0;
    scalar coefficients[kMaxTaps];
    scalar reversed[kMaxTaps];
    AlignedFloats packed;
    scalar* history = nullptr;
    unsigned historySize = 0;
};

} // namespace kelm
