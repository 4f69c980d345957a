#pragma once
#include "dsp/IirResampler.h"

namespace kelm {

// Lowers the rate by "Factor": the low-pass cascade, then every Factor-th sample.
// Its block size counts its (high-rate) input samples.
class IirDecimator : public IirResampler {
public:
    IirDecimator() : IirResampler(false) {}
    ~IirDecimator() override;
    void process(BufferList& inputs, size_t n) override;
    void processTwin(Filter& other, BufferList& inputs, BufferList& twinInputs, size_t n) override;
    using IirResampler::process;
    void setMaxBlockSize(int n) override;
    scalar* getOutput(int index) override;
    BufferList& getOutputs() override { return outputs; }

private:
    scalar* buffer = nullptr;
    BufferList outputs = BufferList(1, nullptr);
};

} // namespace kelm
