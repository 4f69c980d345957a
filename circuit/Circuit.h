#pragma once
#include <memory>
#include <string>
#include <vector>

#include "circuit/Analysis.h"
#include "math/DenseTypes.h"
#include "circuit/MNAContext.h"
#include "circuit/StateSpaceForm.h"
#include "engine/Graph.h"

namespace kelm {

class NewtonSolver;

// A Graph that runs a network of components sample by sample: inputs into
// voltage sources, components with memory advance, the solver produces x,
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
    bool canRunBeside(const Graph& other) const override;
    void processTwin(Graph& other, BufferList& inputs, BufferList& otherInputs, size_t framesPerBuffer) override;
    void setOutputNames(const std::shared_ptr<std::vector<std::string>>& names);
    void setAnalysis(Analysis* a) { analysis.reset(a); }
    Analysis* getAnalysis() const { return analysis.get(); }
    void setContext(const std::shared_ptr<MNAContext>& c) { context = c; }
    const DenseVector& getState() const { return context->solution(); }
    // A linear circuit runs as a state-space system (StateSpaceForm) where it can;
    // off, every sample takes the generic path (for comparisons).
    void setStateSpaceEnabled(bool enabled) { stateSpaceEnabled = enabled; }
    bool runsAsStateSpace() const { return stateSpaceEnabled && form.applies(); }

private:
    // What process() does before the solve of sample i: the inputs, the components'
    // step to the next sample, a changed matrix.
    void beginSample(BufferList& inputs, size_t i);
    // The solver when it is Newton's on a small system (and no state-space form runs).
    NewtonSolver* smallNewton() const;
    void doBypass(BufferList& inputs, BufferList& outputs, size_t frames);
    void freeResults();

    std::shared_ptr<MNAContext> context;
    std::unique_ptr<Analysis> analysis;
    std::shared_ptr<std::vector<std::string>> outputNames;
    ScalarVectorPtr inputValues;
    DenseVector x;
    bool initialized = false;
    StateSpaceForm form;
    bool stateSpaceEnabled = true;
};

} // namespace kelm
