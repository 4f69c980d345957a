#pragma once
#include <memory>
#include <string>
#include <vector>

#include "circuit/Analysis.h"
#include "math/DenseTypes.h"
#include "circuit/MNAContext.h"
#include "engine/Graph.h"

namespace kelm {


// A Graph that runs a network of components sample by sample: inputs into
// voltage sources, components with memory advance, a solve kernel produces x,
// output node voltages (volts) are read out.
class Circuit : public Graph {
public:
    Circuit();
    ~Circuit() override;
    std::shared_ptr<Context> getContext() override { return context; }
    const std::shared_ptr<MNAContext>& getMNAContext() const { return context; }
    void setMaxBlockSize(int n) override;
    void setSampleRate(scalar rate) override;
    void process(BufferList& inputs, size_t framesPerBuffer) override;
    void process(BufferList& inputs, BufferList& outputs, size_t framesPerBuffer) override;
    void init() override;
    std::string describeSolve() const override;
    bool canRunBeside(const Graph& other) const override;
    void processTwin(Graph& other, BufferList& inputs, BufferList& otherInputs, size_t framesPerBuffer) override;
    void setOutputNames(const std::shared_ptr<std::vector<std::string>>& names);
    void setAnalysis(Analysis* a) { analysis.reset(a); }
    Analysis* getAnalysis() const { return analysis.get(); }
    void setContext(const std::shared_ptr<MNAContext>& c) { context = c; }
    const DenseVector& getState() const { return context->solution(); }

    // The kernel that runs the samples now, and why it was chosen.
    const SampleKernel& kernel() const { return *active; }
    const std::string& kernelReason() const { return active == fast.get() ? fastReason : generalReason; }
    // Off, every sample takes the solver's own iteration (the general kernel), so that
    // tests can compare the kernels; on (the default), the circuit's own choice.
    void setKernelsAllowed(bool allowed);

private:
    void chooseKernel();
    // A changed matrix into the active kernel, before a block.
    void deliverMatrixChange();
    void activate(SampleKernel* kernel);
    void doBypass(BufferList& inputs, BufferList& outputs, size_t frames);
    void freeResults();

    std::shared_ptr<MNAContext> context;
    std::unique_ptr<Analysis> analysis;
    std::shared_ptr<std::vector<std::string>> outputNames;
    ScalarVectorPtr inputValues;
    DenseVector x;
    bool initialized = false;
    // The kernel chosen for the circuit (null where none fits) and the general one, both
    // made at the start so that switching between them allocates nothing.
    std::unique_ptr<SampleKernel> fast, general;
    SampleKernel* active = nullptr;
    std::string fastReason, generalReason;
    bool kernelsAllowed = true;
};

} // namespace kelm
