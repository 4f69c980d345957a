#pragma once
#include <map>
#include <memory>
#include <string>

#include "dsp/Convolver.h"

namespace kelm {

// Convolves with one of several impulse responses taken from wave data in
// memory, in files or in the module's resources ("Location" Memory, File or
// Dll), chosen by "Selected" at run time. A response at another rate is
// resampled; with "Scale" its mean is removed; "Gain" scales it.
class WaveConvolver : public Filter {
public:
    WaveConvolver();
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const PropertyMapPtr& properties, std::shared_ptr<DSPContext>& context) override;
    scalar process(scalar) override;
    scalar* process(scalar*, size_t) override;
    void process(const scalar*, scalar*, size_t) override;
    void process(BufferList& inputs, size_t n) override { convolver->process(inputs, n); }
    void process(BufferList& inputs, BufferList& outputs, size_t n) override { convolver->process(inputs, outputs, n); }
    ScalarVector& iterate(const ScalarVectorPtr&, int, int) override;
    ScalarVector& getLastIterationResults() override;
    void endIteration(int) override;
    void setMaxBlockSize(int n) override { convolver->setMaxBlockSize(n); }
    scalar* getOutput(int index) override { return convolver->getOutput(index); }
    BufferList& getOutputs() override { return convolver->getOutputs(); }
    ElementMetaPtr getMeta() override { return convolver->getMeta(); }
    void reset() override { convolver->reset(); }
    void propertyChanged(const std::string&, const ScalarVectorPtr&) override {}
    void propertyChanged(const std::string& name, scalar value) override;
    void sampleRateChanged(scalar rate) override;

    // Responses for Location "Memory": a rate in hertz and the samples, by name.
    void setMemoryResponse(const std::string& name, int rate, const ScalarVectorPtr& samples);
    Convolver& getConvolver() { return *convolver; }
    // Resamples n samples from rate s to rate d (length d/s*n, amplitude times s/d).
    static ScalarVector resample(const scalar* samples, size_t n, double s, double d);
    // The first channel of a wave file's bytes, and its rate.
    static ScalarVector decode(const char* bytes, size_t size, float& rate);

private:
    void update();

    std::string dllResourceType;
    std::unique_ptr<Convolver> convolver;
    bool scale = false;
    int location = 0;
    unsigned selected = 0;
    scalar sampleRate = 0;
    scalar gain = 1.0f;
    std::map<std::string, int> memoryRates;
    std::map<std::string, ScalarVectorPtr> memorySamples;
    std::shared_ptr<std::vector<std::string>> impulseResponses;
};

} // namespace kelm
