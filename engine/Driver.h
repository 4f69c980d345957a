#pragma once
#include <array>
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
// Control changes made on any thread are delivered at the start of the next block, at once
// or, with smooth changes on, as crossfades and glides.
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

    // Changes made while the system plays. Off (the default), every control change takes
    // effect at the start of the next block. On, a control that changes the structure (a
    // graph property such as Off or Bypass, or an element property that chooses a path or a
    // rate: Element::changesStructure) is carried out on spare instances of the graphs it
    // concerns, those it names and those whose rate it moves: the spares run beside the
    // graphs they are to replace for kPrerollSeconds, on the same signal, then take over
    // with a raised-cosine crossfade of kFadeSeconds wherever their outputs leave the
    // graphs concerned. A change of structure that arrives while one is under way waits for
    // it. Every other scalar property glides to a new value in kGlideSeconds, the block then
    // running in steps of kGlideStep frames. A control's first value takes effect at once.
    // Turning it on builds the spares (from the document; not on the audio thread); every
    // buffer a change needs is sized when rates and block sizes are set.
    void setSmoothChanges(bool on);
    bool isSmoothingChanges() const { return smooth; }
    static constexpr double kPrerollSeconds = 0.02;
    static constexpr double kFadeSeconds = 0.005;
    static constexpr double kGlideSeconds = 0.002;
    static constexpr size_t kGlideStep = 8;
    // Warming up: every graph of both instances runs as if neither off nor bypassed, and
    // every change takes effect at once in both, so that whatever a switch brings in later
    // has settled. A change under way is completed at once. Not on the audio thread.
    void setWarming(bool on);
    bool isWarming() const { return warming; }
    // Whether a change of structure is under way.
    bool isChanging() const { return change.active; }
    // The instance of a graph that plays, and its spare (null without smooth changes).
    std::array<Graph*, 2> getGraphInstances(const std::string& name);

private:
    // Where a control property lands, in the playing instance ([0]) and the spare ([1]),
    // with the glide of a scalar property and the value a change of structure brings in.
    struct Target {
        int graph = -1;
        Element* element[2] = {nullptr, nullptr};
        bool delivered = false;
        scalar current = 0, goal = 0, step = 0;
        size_t remaining = 0;
        scalar value = 0;
        ScalarVectorPtr vectorValue;
    };
    // A change of structure under way: the graphs whose spares take over (`changed`), those
    // of them whose outputs are crossfaded, the input multipliers of the new arrangement,
    // the controls it brings in, and its clock in frames at the system rate. `down` and
    // `up` mark what lies after and before the changed graphs while it begins.
    struct Change {
        bool active = false;
        std::vector<char> changed, mixed, down, up;
        std::vector<double> multipliers;
        std::vector<int> controls;
        size_t elapsed = 0, preroll = 0, fade = 0;
    };
    // Which instances a graph reads: the playing ones; a spare's view during a change (the
    // spares of changed graphs, the playing instances of the others); an unchanged graph's
    // view during a change (changed graphs through their crossfade); all spares (warming).
    enum class Side { Playing, Spare, Joined, Spares };

    void buildSpares();
    void resolveTargets();
    void beginChange();
    void finishChange();
    void advanceGlides(size_t frames);
    void finishGlides();
    bool stepsFit(size_t frames) const;
    void refreshRates();
    void sizeBuffers();
    void arrangementMultipliers(const std::vector<char>& pick, std::vector<double>& m) const;
    void runGraphs(const BufferList& inputs, size_t frames);
    // Points `in` at the buffers graph gi reads, on the given side, and returns how many
    // frames it runs for a block of framesPerBuffer at the system rate.
    size_t gather(int gi, const BufferList& inputs, BufferList& in, size_t framesPerBuffer, Side side);
    void mixOutputs(int gi, size_t frames);
    double fadeGain(double t) const;
    void collectStep(const BufferList& inputs, size_t offset, size_t frames, bool copy);

    void computeOrder();
    void computeMultipliers();
    void computeSchedule();
    void resolveProperties();
    int roundedBlockSize(double multiplier) const;
    void collectResults(const BufferList& inputs);
    void applyControls();
    void checkCapacity(int gi, const Graph& source, int node, size_t capacity, size_t frames) const;

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

    std::string document;
    bool smooth = false;
    bool warming = false;
    std::vector<GraphPtr> spares;
    std::vector<std::vector<Target>> targets;  // per control, per property
    std::vector<char> structural;              // per control
    size_t gliding = 0;                        // targets gliding
    Change change;
    bool mixing = false;  // the step under way reaches the crossfade
    std::vector<std::vector<std::vector<scalar>>> mixes;  // crossfaded outputs, per graph and output
    std::vector<std::vector<scalar>> outputs;             // results of a block run in steps
    BufferList stepInputs;
};

} // namespace kelm
