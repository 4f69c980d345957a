#pragma once
#include <memory>

#include "dsp/Buffer.h"
#include "dsp/ConvolutionTail.h"
#include "dsp/RealFft.h"
#include "dsp/SingleOutputFilter.h"

namespace kelm {

// Convolves its input with an impulse response ("ImpulseResponse", at most
// "MaxIRSize" samples), with zero latency. The head of the response, as long as
// a block (rounded up to a power of two), runs by overlap-save with one FFT per
// block over a window of the last samples; the rest runs in partitions that grow
// along the response (ConvolutionTail), so that a long response costs little
// more per block than a short one.
class Convolver : public SingleOutputFilter {
public:
    ~Convolver() override;
    const char* className() const override { return "Convolver"; }
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    using SingleOutputFilter::init;
    scalar process(scalar) override { notSupported(); }
    scalar* process(scalar*, size_t) override { notSupported(); }
    void process(const scalar*, scalar*, size_t) override { notSupported(); }
    void process(BufferList& inputs, size_t n) override;
    void process(BufferList& inputs, BufferList& outputs, size_t n) override;
    ScalarVector& iterate(const ScalarVectorPtr&, int, int) override;
    ScalarVector& getLastIterationResults() override;
    void endIteration(int) override;
    void setMaxBlockSize(int n) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;
    using Filter::propertyChanged;
    void sampleRateChanged(scalar) override { reset(); }
    void reset() override;

    unsigned getFftSize() const { return fftSize; }
    int getMaxIRSize() const { return maxIRSize; }
    // The FFT size for blocks of at most blockSize and a response of irSize samples.
    static unsigned sizeFor(unsigned blockSize, unsigned irSize);
    static unsigned next(unsigned m);
    // Response samples that the per-block transform covers for blocks of at most blockSize.
    static unsigned headLength(unsigned blockSize);
    const ConvolutionTail& getTail() const { return tail; }

private:
    void newSize(unsigned size);
    static float* allocate(size_t floats);

    int maxIRSize = 0;
    unsigned irSize = 0;
    unsigned fftSize = 0;
    unsigned allocatedSize = 0;
    RealFft::Complex* irSpectrum = nullptr;
    float* work = nullptr;
    RealFft::Complex* productSpectrum = nullptr;
    RealFft::Complex* fftWork = nullptr;
    std::unique_ptr<Buffer> window;
    std::unique_ptr<RealFft> fftSetup;
    ScalarVector impulseResponse;
    ConvolutionTail tail;
};

} // namespace kelm
