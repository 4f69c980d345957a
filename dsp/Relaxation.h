#pragma once
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Damps a signal in iterative graphs: each pass moves the last value toward
// the new input by the weight "Relaxation". Has no output buffer.
class Relaxation : public SingleOutputFilter {
public:
    const char* className() const override { return "Relaxation"; }
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    using SingleOutputFilter::init;
    scalar process(scalar) override { return 0.0f; }
    scalar* process(scalar*, size_t) override { blockNotSupported(); }
    void process(const scalar*, scalar*, size_t) override { blockNotSupported(); }
    void process(BufferList&, size_t) override { blockNotSupported(); }
    void process(BufferList&, BufferList&, size_t) override { blockNotSupported(); }
    ScalarVector& iterate(const ScalarVectorPtr& inputs, int frame, int iteration) override;
    void endIteration(int frame) override;
    void setMaxBlockSize(int) override {}
    scalar* getOutput(int) override { blockNotSupported(); }
    BufferList& getOutputs() override { blockNotSupported(); }
    void reset() override { last = 0.0f; }
    virtual void setRelaxation(scalar value);

protected:
    void readProperties(const PropertyMap& p) override;

private:
    [[noreturn]] void blockNotSupported() const;

    bool relaxationSet = false;
    scalar relaxation = 1.0f;
    scalar last = 0.0f;
    scalar previous = 0.0f;
    bool extrapolate = false;
};

} // namespace kelm
