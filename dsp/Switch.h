#pragma once
#include "dsp/SingleOutputFilter.h"
#include "dsp/SwitchMeta.h"

namespace kelm {

// Copies one of its inputs, chosen by "Position", to its output.
class Switch : public SingleOutputFilter {
public:
    Switch();
    const char* className() const override { return "Switch"; }
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;
    bool changesStructure(const std::string& property) const override { return property == "Position"; }
    scalar process(scalar) override { notSupported(); }
    scalar* process(scalar*, size_t) override { notSupported(); }
    void process(const scalar*, scalar*, size_t) override { notSupported(); }
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using SingleOutputFilter::process;
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    ElementMetaPtr getMeta() override { return meta; }
    void reset() override {}
    int getPosition() const { return position; }

private:
    void check();

    std::shared_ptr<SwitchMeta> meta;
    int numberOfInputs = -1;
    int position = 0;
};

} // namespace kelm
