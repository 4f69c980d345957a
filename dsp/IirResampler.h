#pragma once
#include <memory>
#include <string>
#include <vector>

#include "dsp/DesignContext.h"
#include "dsp/FixedOrderIIR.h"
#include "dsp/Filter.h"

namespace kelm {

// What IirInterpolator and IirDecimator share: a cascade of identical
// recursive low-pass stages designed at every change of rate, and the
// "Factor" property that moves the owning graph's rate multiplier.
class IirResampler : public Filter {
public:
    ~IirResampler() override;
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    scalar process(scalar) override;
    scalar* process(scalar*, size_t) override;
    void process(const scalar*, scalar*, size_t) override;
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using Filter::process;
    bool changesStructure(const std::string& property) const override { return property == "Factor"; }
    ScalarVector& iterate(const ScalarVectorPtr&, int, int) override;
    ScalarVector& getLastIterationResults() override;
    void endIteration(int) override;
    ElementMetaPtr getMeta() override;
    void reset() override;
    void sampleRateChanged(scalar rate) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;

    // The history of one second-order section in double, kept between blocks.
    struct SectionHistory {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    };
    // The largest factor accepted, from the document or at run time.
    static constexpr int kMaxFactor = 1024;
    int getFactor() const { return factor; }
    int getCascade() const { return cascade; }
    scalar getNormalizedCorner() const { return normalizedCorner; }
    // The coefficients the stages run with (first stage for B).
    const std::vector<std::shared_ptr<Filter>>& getStages() const { return stages; }

protected:
    explicit IirResampler(bool interpolator) : interpolator(interpolator) {}
    const char* who() const { return interpolator ? "IirInterpolator" : "IirDecimator"; }
    void design();
    // Number of output samples for n input samples.
    size_t outputFrames(size_t n) const { return interpolator ? n * factor : n / factor; }

    const bool interpolator;
    filterdesign::Options type = filterdesign::BUTTERWORTH;
    int order = 0;
    int factor = 1;
    scalar cornerFrequency = -1;
    scalar normalizedCorner = 0;
    scalar relativeCornerFrequency = 0;
    bool hasCornerFrequency = true;
    int cascade = 1;
    std::vector<std::shared_ptr<Filter>> stages;
    // The stages as second-order sections when all of them are, else empty: then a
    // block runs them fused, sample by sample through the whole cascade.
    std::vector<FixedOrderIIR<2>*> sections;
    std::vector<SectionHistory> histories;  // one per section
    BufferList stageInput = BufferList(1, nullptr);
    ScalarVector unusedResults;
    // Designs already made, by normalised corner and factor: a factor or a rate that comes
    // back (a switch between oversampling positions, on the audio thread) finds its
    // coefficients here instead of designing, and allocating, again.
    struct Design {
        scalar corner;
        int factor;
        ScalarVectorPtr a, b, firstB;
    };
    std::vector<Design> designs;
};

} // namespace kelm
