#include "dsp/DSPGraph.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/depth_first_search.hpp>
#include <boost/graph/topological_sort.hpp>

#include "dsp/ElementMeta.h"
#include "dsp/Filter.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

namespace {
typedef boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS> OrderGraph;

struct BackEdgeRecorder : public boost::default_dfs_visitor {
    std::vector<std::pair<int, int>>* backEdges;
    explicit BackEdgeRecorder(std::vector<std::pair<int, int>>* out) : backEdges(out) {}
    template <class Edge, class G>
    void back_edge(Edge e, const G& g) {
        backEdges->emplace_back(static_cast<int>(boost::source(e, g)), static_cast<int>(boost::target(e, g)));
    }
};
} // namespace

DSPGraph::DSPGraph()
    : blockInputs(std::make_shared<BufferList>()),
      iterationInputs(std::make_shared<ScalarVector>()),
      currentOutputs(std::make_shared<ScalarVector>()),
      previousOutputs(std::make_shared<ScalarVector>()),
      inputElements(std::make_shared<IndexTable>()),
      inputOutputs(std::make_shared<IndexTable>()),
      outputElements(std::make_shared<std::vector<int>>()),
      outputIndices(std::make_shared<std::vector<int>>()) {
    type = GraphType::DSP;
}

void DSPGraph::setInputs(const std::shared_ptr<IndexTable>& elements, const std::shared_ptr<IndexTable>& outputs) {
    inputElements = elements;
    inputOutputs = outputs;
}

void DSPGraph::setOutputs(const std::shared_ptr<std::vector<int>>& elements,
                          const std::shared_ptr<std::vector<int>>& indices) {
    outputElements = elements;
    outputIndices = indices;
    numberOfOutputs = static_cast<int>(elements->size());
    results.assign(numberOfOutputs, nullptr);
}

void DSPGraph::setProperties(const PropertyMapPtr& properties) {
    if (properties) {
        std::string method;
        if (properties->readOptional("ProcessingMethod", method)) {
            if (method == "Block")
                processingMethod = 0;
            else if (method == "Sequential")
                processingMethod = 1;
            else if (method == "Iterative")
                processingMethod = 2;
            else
                throw InvalidArgumentException("DSPGraph: Invalid ProcessingMethod property " + method);
        }
        if (processingMethod == 2) {
            properties->readRequired("RelativeTollerance", relativeTollerance,
                                     KELMException("DSPGraph: RelativeTollerance is not defined."));
            if (!(relativeTollerance > 0))
                throw InvalidArgumentException(
                    str("DSPGraph: RelativeTollerance must be greater than 0. relativeTollerance=", relativeTollerance));
            properties->readRequired("AbsoluteTollerance", absoluteTollerance,
                                     KELMException("DSPGraph: AbsoluteTollerance is not defined."));
            if (!(absoluteTollerance > 0))
                throw InvalidArgumentException(
                    str("DSPGraph: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=", absoluteTollerance));
            properties->readRequired("MaxIterations", maxIterations,
                                     KELMException("DSPGraph: MaxIterations is not defined."));
            if (maxIterations < 1)
                throw InvalidArgumentException(
                    str("DSPGraph: MaxIterations must be greater than 0. MaxIterations=", maxIterations));
        }
    }
    Graph::setProperties(properties);
}

void DSPGraph::init() {
    if (!context) throw KELMException("Context not set for DSPGraph " + graphName);
    if (numberOfInputs < 1)
        throw KELMException(
            str("Invalid number of outputs for DSPGraph ", graphName, ", number of outputs: ", numberOfOutputs));
    const size_t n = context->elements.size();
    if (inputElements->size() < n) {
        inputElements->resize(n);
        inputOutputs->resize(n);
    }
    size_t widest = 0;
    for (size_t e = 0; e < n; ++e) {
        int ports = context->elements[e]->getMeta()->numberOfInputs();
        widest = std::max(widest, static_cast<size_t>(std::max(ports, 0)));
        if ((*inputElements)[e].size() < static_cast<size_t>(ports)) {
            (*inputElements)[e].resize(ports, -1);
            (*inputOutputs)[e].resize(ports, -1);
        }
    }
    switch (processingMethod) {
    case 0:
        blockInputs->assign(widest, nullptr);
        break;
    case 1:
        elementInputs.assign(n, BufferList());
        for (size_t e = 0; e < n; ++e) elementInputs[e].assign((*inputElements)[e].size(), nullptr);
        graphInputValues.assign(numberOfInputs, 0.0f);
        sequentialOutputs.clear();
        for (int o = 0; o < numberOfOutputs; ++o) sequentialOutputs.push_back(std::make_shared<ScalarVector>());
        break;
    case 2:
        iterationInputs->assign(widest, 0.0f);
        currentOutputs->assign(numberOfOutputs, 0.0f);
        previousOutputs->assign(numberOfOutputs, 0.0f);
        break;
    default:
        throw KELMException("Invalid processing method");
    }
    computeOrder();
    initialized = true;
    if (processingMethod == 1 && maxBlockSize > 0) {
        for (auto& buffer : sequentialOutputs) buffer->resize(maxBlockSize, 0.0f);
        reconnect();
    }
}

void DSPGraph::computeOrder() {
    const int n = static_cast<int>(context->elements.size());
    bool readsGraphInput = false;
    for (int e = 0; e < n; ++e)
        for (size_t p = 0; p < (*inputOutputs)[e].size(); ++p)
            if ((*inputOutputs)[e][p] != -1 && (*inputElements)[e][p] == -1) readsGraphInput = true;
    OrderGraph g(readsGraphInput ? n + 1 : n);
    for (int e = 0; e < n; ++e) {
        std::vector<int> sources;
        for (size_t p = 0; p < (*inputOutputs)[e].size(); ++p) {
            if ((*inputOutputs)[e][p] == -1) continue;
            int src = (*inputElements)[e][p];
            if (src == -1) src = n;
            if (std::find(sources.begin(), sources.end(), src) == sources.end()) sources.push_back(src);
        }
        for (int src : sources) boost::add_edge(src, e, g);
    }
    if (processingMethod == 1 || processingMethod == 2) {
        std::vector<std::pair<int, int>> backEdges;
        BackEdgeRecorder recorder(&backEdges);
        boost::depth_first_search(g, boost::visitor(recorder));
        for (auto& edge : backEdges) {
            if (edge.first == n || edge.second == n)
                throw KELMException(
                    "DSPGraph: A back edge containing graph detected. Cannot create filter processing order.");
            boost::remove_edge(edge.first, edge.second, g);
        }
    }
    std::vector<int> finished;
    try {
        boost::topological_sort(g, std::back_inserter(finished));
    } catch (const boost::not_a_dag&) {
        throw KELMException("Filters do not form a DAG.");
    }
    order.clear();
    for (auto it = finished.rbegin(); it != finished.rend(); ++it)
        if (*it != n) order.push_back(*it);
}

void DSPGraph::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("DSPGraph: Invalid maxBlockSize", n));
    if (!context) throw KELMException("Context not set for DSPGraph " + graphName);
    switch (processingMethod) {
    case 0:
    case 2:
        for (Filter* f : context->elements) f->setMaxBlockSize(n);
        break;
    case 1:
        for (Filter* f : context->elements) f->setMaxBlockSize(1);
        if (n > maxBlockSize) {
            for (auto& buffer : sequentialOutputs) buffer->resize(n, 0.0f);
        }
        reconnect();
        break;
    default:
        throw KELMException("Invalid processing method");
    }
    maxBlockSize = n;
}

void DSPGraph::setSampleRate(scalar rate) {
    if (!context) throw KELMException("Context not set for DSPGraph " + graphName);
    context->setSampleRate(rate);
    if (processingMethod == 1) reconnect();
}

void DSPGraph::reconnect() {
    if (!initialized) return;
    for (size_t e = 0; e < elementInputs.size(); ++e) {
        for (size_t p = 0; p < elementInputs[e].size(); ++p) {
            int out = (*inputOutputs)[e][p];
            if (out == -1) continue;
            int src = (*inputElements)[e][p];
            if (src == -1)
                elementInputs[e][p] = out < static_cast<int>(graphInputValues.size()) ? &graphInputValues[out] : nullptr;
            else
                elementInputs[e][p] = context->elements[src]->getOutput(out);
        }
    }
}

int DSPGraph::getResultCapacity(int index) const {
    if (processingMethod == 1 || !initialized || index < 0 || index >= numberOfOutputs) return maxBlockSize;
    return context->elements[(*outputElements)[index]]->getMaxBlockSize();
}

void DSPGraph::process(BufferList& inputs, size_t framesPerBuffer) {
    if (framesPerBuffer > static_cast<size_t>(static_cast<unsigned>(maxBlockSize)))
        throw KELMException(str("maxBlockSize is less than input size. DSPGraph name: ", graphName,
                                " maxBlockSize: ", maxBlockSize, " input size:", framesPerBuffer));
    process(inputs, results, framesPerBuffer);
}

scalar* DSPGraph::outputBuffer(int o) {
    if (processingMethod == 1) return sequentialOutputs[o]->data();
    return context->elements[(*outputElements)[o]]->getOutput((*outputIndices)[o]);
}

void DSPGraph::doBypass(BufferList& inputs, BufferList& outputs, size_t frames, bool silence) {
    for (int o = 0; o < numberOfOutputs; ++o) {
        outputs[o] = outputBuffer(o);
        if (silence || o >= static_cast<int>(inputs.size()) || !inputs[o])
            std::fill(outputs[o], outputs[o] + frames, 0.0f);
        else if (outputs[o] != inputs[o])
            std::memmove(outputs[o], inputs[o], frames * sizeof(scalar));
    }
}

void DSPGraph::process(BufferList& inputs, BufferList& outputs, size_t frames) {
    if (!initialized) throw KELMException("DSPGraph is not initialized. DSPGraph Name: " + graphName);
    if (bypass) {
        if (numberOfInputs != numberOfOutputs)
            throw KELMException(
                "DSPGraph: Cannot bypass a graph that does not have the same number of inputs and outputs. Graph name: " +
                graphName);
        doBypass(inputs, outputs, frames, false);
        return;
    }
    if (off) {
        doBypass(inputs, outputs, frames, true);
        return;
    }
    switch (processingMethod) {
    case 0:
        processBlock(inputs, outputs, frames);
        break;
    case 1:
        processSequential(inputs, outputs, frames);
        break;
    case 2:
        processIterative(inputs, outputs, frames);
        break;
    default:
        throw KELMException("Invalid processing method");
    }
}

void DSPGraph::gatherBlockInputs(int e, BufferList& inputs, BufferList& in) {
    auto& elements = context->elements;
    const std::vector<int>& sources = (*inputElements)[e];
    const std::vector<int>& ports = (*inputOutputs)[e];
    in.resize(sources.size());
    for (size_t p = 0; p < sources.size(); ++p) {
        if (ports[p] == -1)
            in[p] = nullptr;
        else if (sources[p] == -1)
            in[p] = ports[p] >= 0 && ports[p] < static_cast<int>(inputs.size()) ? inputs[ports[p]] : nullptr;
        else
            in[p] = elements[sources[p]]->getOutput(ports[p]);
    }
}

void DSPGraph::processBlock(BufferList& inputs, BufferList& outputs, size_t frames) {
    auto& elements = context->elements;
    BufferList& in = *blockInputs;
    for (int e : order) {
        gatherBlockInputs(e, inputs, in);
        elements[e]->process(in, frames);
    }
    for (int o = 0; o < numberOfOutputs; ++o)
        outputs[o] = elements[(*outputElements)[o]]->getOutput((*outputIndices)[o]);
}

bool DSPGraph::canRunBeside(const Graph& otherGraph) const {
    const DSPGraph* other = dynamic_cast<const DSPGraph*>(&otherGraph);
    if (!other || other == this || !initialized || !other->initialized) return false;
    if (processingMethod != 0 || other->processingMethod != 0) return false;
    if (numberOfInputs != other->numberOfInputs || numberOfOutputs != other->numberOfOutputs) return false;
    if (order != other->order) return false;
    return sameKinds(context->elements, other->context->elements);
}

void DSPGraph::processTwin(Graph& otherGraph, BufferList& inputs, BufferList& otherInputs, size_t frames) {
    DSPGraph* other = dynamic_cast<DSPGraph*>(&otherGraph);
    // Anything but two plain block graphs with their elements in the same order runs one
    // graph after the other, which also gives the usual checks and messages.
    if (!other || !plainBeside(*other, frames) || !initialized || !other->initialized || processingMethod != 0 ||
        other->processingMethod != 0 || order != other->order) {
        Graph::processTwin(otherGraph, inputs, otherInputs, frames);
        return;
    }
    auto& elements = context->elements;
    auto& twins = other->context->elements;
    BufferList& in = *blockInputs;
    BufferList& twinIn = *other->blockInputs;
    for (int e : order) {
        gatherBlockInputs(e, inputs, in);
        other->gatherBlockInputs(e, otherInputs, twinIn);
        elements[e]->processTwin(*twins[e], in, twinIn, frames);
    }
    for (int o = 0; o < numberOfOutputs; ++o)
        results[o] = elements[(*outputElements)[o]]->getOutput((*outputIndices)[o]);
    for (int o = 0; o < other->numberOfOutputs; ++o)
        other->results[o] = twins[(*other->outputElements)[o]]->getOutput((*other->outputIndices)[o]);
}

void DSPGraph::processSequential(BufferList& inputs, BufferList& outputs, size_t frames) {
    auto& elements = context->elements;
    const size_t n = elements.size();
    for (size_t f = 0; f < frames; ++f) {
        for (size_t k = 0; k < graphInputValues.size() && k < inputs.size(); ++k)
            if (inputs[k]) graphInputValues[k] = inputs[k][f];
        for (size_t e = 0; e < n; ++e) elements[e]->process(elementInputs[e], 1);
        for (int o = 0; o < numberOfOutputs; ++o)
            (*sequentialOutputs[o])[f] = elements[(*outputElements)[o]]->getOutput((*outputIndices)[o])[0];
    }
    for (int o = 0; o < numberOfOutputs; ++o) outputs[o] = sequentialOutputs[o]->data();
}

void DSPGraph::processIterative(BufferList& inputs, BufferList& outputs, size_t frames) {
    auto& elements = context->elements;
    ScalarVector& in = *iterationInputs;
    for (size_t f = 0; f < frames; ++f) {
        scalar e = absoluteTollerance + 1.0f;
        scalar r = absoluteTollerance + 1.0f;
        std::fill(previousOutputs->begin(), previousOutputs->end(), 0.0f);
        int k = 0;
        while ((r > 0 || e > absoluteTollerance) && k < maxIterations) {
            for (int el : order) {
                const std::vector<int>& sources = (*inputElements)[el];
                const std::vector<int>& ports = (*inputOutputs)[el];
                in.resize(sources.size());
                for (size_t p = 0; p < sources.size(); ++p) {
                    if (ports[p] == -1)
                        in[p] = 0.0f;
                    else if (sources[p] == -1)
                        in[p] = (ports[p] >= 0 && ports[p] < static_cast<int>(inputs.size()) && inputs[ports[p]])
                                    ? inputs[ports[p]][f]
                                    : 0.0f;
                    else
                        in[p] = elements[sources[p]]->getLastIterationResults()[ports[p]];
                }
                elements[el]->iterate(iterationInputs, static_cast<int>(f), k);
            }
            e = -1.0f;
            r = -1.0f;
            for (int o = 0; o < numberOfOutputs; ++o) {
                scalar c = elements[(*outputElements)[o]]->getLastIterationResults()[(*outputIndices)[o]];
                (*currentOutputs)[o] = c;
                if (k == 0) {
                    e = absoluteTollerance + 1.0f;
                    r = 1.0f;
                } else {
                    scalar d = std::fabs(c - (*previousOutputs)[o]);
                    e = std::max(e, d);
                    r = std::max(r, d - std::fabs(c) * relativeTollerance);
                }
            }
            *previousOutputs = *currentOutputs;
            ++k;
        }
        for (Filter* filter : elements) filter->endIteration(static_cast<int>(f));
    }
    for (int o = 0; o < numberOfOutputs; ++o)
        outputs[o] = elements[(*outputElements)[o]]->getOutput((*outputIndices)[o]);
}

} // namespace kelm
