#pragma once
#include "dsp/Fir.h"

namespace kelm {

// Raises the rate by "Factor" with a polyphase FIR: y[kF+p] = sum_j c[jF+p] x[k-j].
class PolyphaseUpsampler : public Fir {
public:
    const char* className() const override { return "PolyphaseUpsampler"; }
    scalar process(scalar) override { notSupported(); }
    void process(const scalar* in, scalar* out, size_t n) override;
    scalar* process(scalar* in, size_t n) override;
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using Fir::process;
    ScalarVector& iterate(const ScalarVectorPtr&, int, int) override;
    ScalarVector& getLastIterationResults() override;
    void endIteration(int) override;
    void setMaxBlockSize(int n) override;
    void setCoefficients(const scalar* taps, unsigned n) override;
    using Fir::setCoefficients;
    int getFactor() const { return factor; }

protected:
    void readProperties(const PropertyMap& p) override;

    int factor = 0;
    unsigned phaseLength = 0;
    AlignedFloats scratch;
};

} // namespace kelm
