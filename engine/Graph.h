#pragma once
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "engine/PropertyMap.h"
#include "engine/Types.h"

namespace kelm {

// The two kinds of graph: digital filters, or a circuit solved by modified nodal analysis.
enum class GraphType { DSP = 0, MNA = 1 };

class Context;

// One node of the system: a named block with numbered inputs and outputs that
// the Driver runs once per block, with rate multipliers and Off/Bypass/Suspend.
class Graph {
public:
    virtual ~Graph() {}
    virtual const std::string& name() const { return graphName; }
    virtual void setName(const std::string& n) { graphName = n; }
    virtual GraphType getType() const { return type; }
    virtual void setType(GraphType t) { type = t; }
    virtual std::shared_ptr<Context> getContext() = 0;
    virtual int getNumberOfOutputs() const { return numberOfOutputs; }
    virtual int getNumberOfInputs() const { return numberOfInputs; }
    virtual void setNumberOfInputs(int n);
    virtual void setMaxBlockSize(int n) = 0;
    virtual void setSampleRate(scalar rate) = 0;
    virtual scalar* getResult(const std::string& outputName);
    virtual scalar* getResult(int index);
    virtual BufferList& getResults() { return results; }
    virtual void process(BufferList& inputs, size_t framesPerBuffer) = 0;
    virtual void process(BufferList& inputs, BufferList& outputs, size_t framesPerBuffer) = 0;
    // Whether `other` is built alike (the same kind, the same elements in the same order), so
    // that running the two side by side through processTwin is worth it. Fixed once built.
    virtual bool canRunBeside(const Graph& other) const;
    // How the graph computes its samples, for a description of the system ("" where there
    // is nothing to say beyond its type).
    virtual std::string describeSolve() const { return ""; }
    // Runs this graph and `other` over one block each, with the result of process(inputs, n)
    // followed by other.process(otherInputs, n), to the bit. The Driver pairs graphs that can
    // run beside each other, such as the two channels of a stereo system.
    virtual void processTwin(Graph& other, BufferList& inputs, BufferList& otherInputs, size_t framesPerBuffer);
    virtual void init() = 0;
    virtual void setOff(bool value, int index);
    virtual void setSuspended(bool value, int index);
    virtual void setBypass(bool value, int index);
    virtual void setInputMultiplier(double m);
    virtual double getInputMultiplier() const { return inputMultiplier; }
    virtual void setOutputMultiplier(double m) { outputMultiplier = m; }
    virtual double getOutputMultiplier() const;
    virtual void setMultiplier(double m);
    virtual double getMultiplier() const { return multiplier; }
    virtual void setProperties(const PropertyMapPtr& properties);
    virtual void propertyChanged(const std::string& name, scalar value);

    // Warming up: held on, the graph runs whether a control has switched it off or bypassed
    // it; released, it follows the controls' requests again.
    void holdOn(bool on);
    bool isHeldOn() const { return held; }

    bool isOff() const { return off; }
    bool isBypassed() const { return bypass; }
    bool isSuspended() const { return suspended; }
    int getMaxBlockSize() const { return maxBlockSize; }
    // How many samples the buffer of output `index` holds (for the Driver's check of rates).
    virtual int getResultCapacity(int) const { return maxBlockSize; }
    // Names of the outputs as the system description gives them (for tools).
    void setOutputLabels(const std::vector<std::string>& labels) { outputLabels = labels; }
    const std::vector<std::string>& getOutputLabels() const { return outputLabels; }

protected:
    // Whether this graph and `other` can both run a block of `frames` now, side by side:
    // two graphs, neither bypassed nor off, the block within both graphs' sizes.
    bool plainBeside(const Graph& other, size_t frames) const;
    // Whether two lists hold parts of the same types in the same order.
    template <typename T>
    static bool sameKinds(const std::vector<T*>& a, const std::vector<T*>& b) {
        if (a.size() != b.size()) return false;
        for (size_t i = 0; i < a.size(); ++i)
            if (typeid(*a[i]) != typeid(*b[i])) return false;
        return true;
    }
    void setRequest(std::vector<bool>& requests, bool value, int index);
    // Sets off and bypass from the requests (both false while held on).
    void applyRequests();

    std::string graphName;
    GraphType type = GraphType::DSP;
    int numberOfInputs = 0;
    int numberOfOutputs = 0;
    int maxBlockSize = -1;
    double multiplier = 1.0;
    double inputMultiplier = 1.0;
    double outputMultiplier = 1.0;
    BufferList results;
    bool off = false;
    bool bypass = false;
    bool suspended = false;
    bool held = false;
    std::vector<bool> bypassRequests = std::vector<bool>(1, false);
    std::vector<bool> offRequests = std::vector<bool>(1, false);
    std::vector<std::string> outputLabels;
};

typedef std::shared_ptr<Graph> GraphPtr;

} // namespace kelm
