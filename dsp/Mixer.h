#pragma once
#include "dsp/MixerMeta.h"
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Weighted sum of its inputs, one fader (0 to 1) per input.
class Mixer : public SingleOutputFilter {
public:
    Mixer();
    const char* className() const override { return "Mixer"; }
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;
    scalar process(scalar) override { notSupported(); }
    scalar* process(scalar*, size_t) override { notSupported(); }
    void process(const scalar*, scalar*, size_t) override { notSupported(); }
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    ElementMetaPtr getMeta() override { return meta; }
    void reset() override {}

protected:
    void readProperties(const PropertyMap& p) override;

private:
    std::shared_ptr<MixerMeta> meta;
    ScalarVectorPtr faders;
};

} // namespace kelm
