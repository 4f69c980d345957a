#pragma once
#include <string>

#include "dsp/Filter.h"

namespace kelm {

// A Filter with one output buffer and the common behaviour: the vector forms
// of process forward to the raw-pointer block form, iteration results are one
// value, the buffer only grows. Subclasses name themselves for messages.
class SingleOutputFilter : public Filter {
public:
    SingleOutputFilter() = default;
    ~SingleOutputFilter() override;
    SingleOutputFilter(const SingleOutputFilter&) = delete;
    SingleOutputFilter& operator=(const SingleOutputFilter&) = delete;

    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    void process(BufferList& inputs, size_t framesPerBuffer) override;
    void process(BufferList& inputs, BufferList& outputs, size_t framesPerBuffer) override;
    using Filter::process;
    ScalarVector& getLastIterationResults() override { return iterationResults; }
    void setMaxBlockSize(int n) override;
    scalar* getOutput(int index) override;
    BufferList& getOutputs() override { return outputs; }
    ElementMetaPtr getMeta() override;

    // Class name used at the head of messages.
    virtual const char* className() const = 0;

protected:
    // Reads the element's own properties; called by init before the outputs are set up.
    virtual void readProperties(const PropertyMap&) {}
    [[noreturn]] void notSupported() const;
    void setupOutputs();

    scalar* buffer = nullptr;
    BufferList outputs;
    ScalarVector iterationResults;
};

} // namespace kelm
