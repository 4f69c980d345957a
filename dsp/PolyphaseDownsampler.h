#pragma once
#include "dsp/Fir.h"

namespace kelm {

// Lowers the rate by "Factor": the FIR evaluated at every Factor-th input sample.
class PolyphaseDownsampler : public Fir {
public:
    const char* className() const override { return "PolyphaseDownsampler"; }
    scalar process(scalar) override { return 0.0f; }
    void process(const scalar* in, scalar* out, size_t n) override;
    scalar* process(scalar* in, size_t n) override;
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    using Fir::process;
    ScalarVector& iterate(const ScalarVectorPtr&, int, int) override;
    ScalarVector& getLastIterationResults() override;
    void endIteration(int) override;
    void setMaxBlockSize(int n) override;
    int getFactor() const { return factor; }

protected:
    void readProperties(const PropertyMap& p) override;

    int factor = 0;
};

} // namespace kelm
