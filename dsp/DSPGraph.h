#pragma once
#include <memory>
#include <vector>

#include "dsp/DSPContext.h"
#include "engine/Graph.h"

namespace kelm {

// A graph of Filter elements run by one of three methods:
// 0 Block (topological order, whole blocks), 1 Sequential (one frame at a time
// in definition order, feedback allowed), 2 Iterative (per-frame fixed point).
class DSPGraph : public Graph {
public:
    typedef std::vector<std::vector<int>> IndexTable;

    DSPGraph();
    std::shared_ptr<Context> getContext() override { return context; }
    std::shared_ptr<DSPContext>& getDSPContext() { return context; }
    void setContext(const std::shared_ptr<DSPContext>& c) { context = c; }
    void setMaxBlockSize(int n) override;
    void setSampleRate(scalar rate) override;
    void process(BufferList& inputs, size_t framesPerBuffer) override;
    void process(BufferList& inputs, BufferList& outputs, size_t framesPerBuffer) override;
    void init() override;
    void setProperties(const PropertyMapPtr& properties) override;
    int getResultCapacity(int index) const override;
    bool canRunBeside(const Graph& other) const override;
    void processTwin(Graph& other, BufferList& inputs, BufferList& otherInputs, size_t framesPerBuffer) override;

    // Wiring from the parser: per element and port, the source element (-1 for
    // a graph input) and the source's output number (-1: unconnected).
    void setInputs(const std::shared_ptr<IndexTable>& elements, const std::shared_ptr<IndexTable>& outputs);
    void setOutputs(const std::shared_ptr<std::vector<int>>& elements, const std::shared_ptr<std::vector<int>>& indices);

    int getProcessingMethod() const { return processingMethod; }
    const std::vector<int>& getOrder() const { return order; }

private:
    void computeOrder();
    void reconnect();
    void doBypass(BufferList& inputs, BufferList& outputs, size_t frames, bool silence);
    scalar* outputBuffer(int output);
    void processBlock(BufferList& inputs, BufferList& outputs, size_t frames);
    // The input buffers of element e in block processing, from the graph's inputs and the
    // outputs of the elements before it.
    void gatherBlockInputs(int e, BufferList& inputs, BufferList& in);
    void processSequential(BufferList& inputs, BufferList& outputs, size_t frames);
    void processIterative(BufferList& inputs, BufferList& outputs, size_t frames);

    std::shared_ptr<DSPContext> context;
    std::vector<BufferList> elementInputs;
    std::vector<scalar> graphInputValues;
    std::shared_ptr<BufferList> blockInputs;
    std::shared_ptr<ScalarVector> iterationInputs;
    std::shared_ptr<ScalarVector> currentOutputs;
    std::shared_ptr<ScalarVector> previousOutputs;
    std::vector<ScalarVectorPtr> sequentialOutputs;
    bool initialized = false;
    std::shared_ptr<IndexTable> inputElements;
    std::shared_ptr<IndexTable> inputOutputs;
    std::shared_ptr<std::vector<int>> outputElements;
    std::shared_ptr<std::vector<int>> outputIndices;
    std::vector<int> order;
    scalar relativeTollerance = 0;
    scalar absoluteTollerance = 0;
    int maxIterations = 1;
    int processingMethod = 0;
};

} // namespace kelm
