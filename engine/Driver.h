#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/Control.h"
#include "engine/Graph.h"
#include "engine/Types.h"

namespace kelm {


// Top of the engine: parses a system description into graphs, orders them by
// data flow, works out each graph's rate and runs them block by block.
// Control changes made on any thread are delivered at the start of the next block.
class Driver {
public:
    typedef std::vector<std::vector<int>> IndexTable;

    Driver();
    virtual ~Driver();
    // inputs: one pointer per system input. Results stay valid until the next call.
    virtual void process(const BufferList& inputs, size_t framesPerBuffer);
    virtual BufferList& getResults() { return results; }
    virtual Graph& getGraph(const std::string& name);
    virtual void suspend(bool value);
    virtual bool isSuspended() const { return suspended.load(); }
    virtual bool isProcessing() const { return processing.load(); }
    virtual std::vector<ControlPtr>& getControls() { return *controls; }
    virtual void setMultipliersChanged() { multipliersChanged.store(true); }

    // Parses the XML text of a system description and builds every graph.
    void init(const std::string& document);
    void setSampleRate(scalar rate);
    scalar getSampleRate() const { return sampleRate; }
    void setMaxBlockSize(int n);
    int getMaxBlockSize() const { return maxBlockSize; }
    bool isInitialized() const { return initialized; }

    // Read-only views for tools.
    const std::vector<GraphPtr>& getGraphs() const { return *graphs; }
    const std::vector<int>& getOrder() const { return order; }
    const IndexTable& getInputGraphs() const { return *inputGraphs; }
    const IndexTable& getInputNodes() const { return *inputNodes; }
    const std::vector<int>& getOutputGraphs() const { return *outputGraphs; }
    const std::vector<int>& getOutputNodes() const { return *outputNodes; }
    int getNumberOfInputs() const;
    int getNumberOfOutputs() const { return static_cast<int>(outputGraphs->size()); }
    ControlPtr findControl(const std::string& name) const;
    // Graphs built alike whose inputs are ready at the same point (the two channels of a
    // stereo system) run side by side, which gives the same samples faster. Off: every
    // graph runs alone, in the order of data flow.
    void setTwinning(bool on) { twinning = on; }
    bool isTwinning() const { return twinning; }
    // What runs in a block: each step a graph, and a second one beside it or -1.
    const std::vector<std::pair<int, int>>& getSchedule() const { return schedule; }

private:
    void computeOrder();
    void computeMultipliers();
    void computeSchedule();
    // Points `in` at the buffers graph gi reads and returns how many frames it runs for a
    // block of framesPerBuffer at the system rate.
    size_t gatherInputs(int gi, const BufferList& inputs, BufferList& in, size_t framesPerBuffer);
    void resolveProperties();
    int roundedBlockSize(double multiplier) const;
    void collectResults(const BufferList& inputs);
    void applyControls();

    std::unordered_map<std::string, int> graphsByName;
    std::shared_ptr<std::vector<GraphPtr>> graphs;
    std::shared_ptr<IndexTable> inputGraphs;
    std::shared_ptr<IndexTable> inputNodes;
    std::shared_ptr<std::vector<int>> outputGraphs;
    std::shared_ptr<std::vector<int>> outputNodes;
    std::shared_ptr<std::vector<double>> inputMultipliers;
    std::shared_ptr<BufferList> graphInputs;
    std::shared_ptr<BufferList> twinInputs;
    std::vector<std::pair<int, int>> schedule;
    bool twinning = true;
    BufferList results;
    std::shared_ptr<std::vector<ControlPtr>> controls;
    std::vector<int> order;
    scalar sampleRate = -1.0f;
    int maxBlockSize = -1;
    bool initialized = false;
    std::atomic<bool> suspended{false};
    std::atomic<bool> processing{false};
    std::atomic<bool> multipliersChanged{false};
};

} // namespace kelm
