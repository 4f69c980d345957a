#pragma once
#include <memory>
#include <string>
#include <vector>

#include "dsp/ElementMeta.h"
#include "engine/Element.h"
#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

class DSPContext;
class PropertiesHandler;

// Base of every digital element: three processing styles (sample, block,
// iteration), a block size, its context and an optional properties handler.
class Filter : public Element {
public:
    ~Filter() override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

    virtual void init(const std::string& name, std::shared_ptr<DSPContext>& context);
    virtual void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) = 0;
    virtual scalar process(scalar in) = 0;
    virtual void process(BufferList& inputs, size_t framesPerBuffer) = 0;
    virtual void process(BufferList& inputs, BufferList& outputs, size_t framesPerBuffer) = 0;
    virtual scalar* process(scalar* in, size_t framesPerBuffer) = 0;
    virtual void process(const scalar* in, scalar* out, size_t framesPerBuffer) = 0;
    virtual void sampleRateChanged(scalar rate);
    virtual ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) = 0;
    virtual ScalarVector& getLastIterationResults() = 0;
    virtual void endIteration(int frame) = 0;
    virtual void setMaxBlockSize(int n) = 0;
    virtual scalar* getOutput(int index) = 0;
    virtual BufferList& getOutputs() = 0;
    virtual ElementMetaPtr getMeta() = 0;
    virtual void reset() = 0;
    virtual void setPropertiesHandler(const std::shared_ptr<PropertiesHandler>& handler);
    // Runs this filter and `twin` (the same kind of filter at the same place of a graph
    // built alike, such as the other channel's) over one block each, with the result of
    // process(inputs, n) followed by twin.process(twinInputs, n), to the bit. Kinds whose
    // work is one long recursion override it to run both in one loop, where the two
    // independent chains overlap in the processor or share the lanes of a vector.
    virtual void processTwin(Filter& twin, BufferList& inputs, BufferList& twinInputs, size_t framesPerBuffer);

    int getMaxBlockSize() const { return maxBlockSize; }
    const std::shared_ptr<PropertiesHandler>& getPropertiesHandler() const { return propertiesHandler; }

protected:
    DSPContext* context = nullptr;  // owner of this filter; not owned
    int maxBlockSize = 0;
    std::shared_ptr<PropertiesHandler> propertiesHandler;
    PropertyMap properties;
};

} // namespace kelm
