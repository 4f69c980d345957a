#pragma once
#include "dsp/IirResampler.h"

namespace kelm {

// Raises the rate by "Factor": zero stuffing, then the low-pass cascade.
// Its block size counts high-rate samples; the last stage's buffer is its output.
class IirInterpolator : public IirResampler {
public:
    IirInterpolator() : IirResampler(true) {}
    ~IirInterpolator() override;
    void process(BufferList& inputs, size_t n) override;
    void processTwin(Filter& other, BufferList& inputs, BufferList& twinInputs, size_t n) override;
    using IirResampler::process;
    void setMaxBlockSize(int n) override;
    scalar* getOutput(int index) override;
    BufferList& getOutputs() override;

private:
    scalar* buffer = nullptr;
};

} // namespace kelm
