#include "engine/Driver.h"

#include <cmath>
#include <set>
#include <thread>
#include <tuple>

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/topological_sort.hpp>

#include "engine/Context.h"
#include "engine/Element.h"
#include "engine/InvalidArgumentException.h"
#include "engine/NewParser.h"
#include "engine/Str.h"

namespace kelm {

Driver::Driver()
    : graphs(std::make_shared<std::vector<GraphPtr>>()),
      inputGraphs(std::make_shared<IndexTable>()),
      inputNodes(std::make_shared<IndexTable>()),
      outputGraphs(std::make_shared<std::vector<int>>()),
      outputNodes(std::make_shared<std::vector<int>>()),
      inputMultipliers(std::make_shared<std::vector<double>>()),
      graphInputs(std::make_shared<BufferList>()),
      controls(std::make_shared<std::vector<ControlPtr>>()) {}

Driver::~Driver() {
    // Graphs hold plain back references to this driver through their contexts.
    for (auto& g : *graphs)
        if (g && g->getContext()) g->getContext()->setDriver(nullptr);
}

void Driver::init(const std::string& document) {
    NewParser parser(componentFactory, dspElementFactory);
    parser.parse(document);
    graphs = parser.graphs;
    inputGraphs = parser.inputGraphs;
    inputNodes = parser.inputNodes;
    outputGraphs = parser.outputGraphs;
    outputNodes = parser.outputNodes;
    graphsByName.clear();
    for (auto& g : *graphs) g->getContext()->setDriver(this);
    for (size_t i = 0; i < graphs->size(); ++i) graphsByName[(*graphs)[i]->name()] = static_cast<int>(i);
    computeOrder();
    size_t widest = 0;
    for (auto& g : *graphs) {
        widest = std::max(widest, static_cast<size_t>(std::max(0, g->getNumberOfOutputs())));
        widest = std::max(widest, static_cast<size_t>(std::max(0, g->getNumberOfInputs())));
    }
    graphInputs->assign(widest, nullptr);
    inputMultipliers->assign(graphs->size(), 1.0);
    computeMultipliers();
    results.assign(outputGraphs->size(), nullptr);
    for (size_t i = 0; i < graphs->size(); ++i) {
        (*graphs)[i]->init();
        if (maxBlockSize > 0) (*graphs)[i]->setMaxBlockSize(roundedBlockSize((*inputMultipliers)[i]));
    }
    controls = parser.controls;
    resolveProperties();
    initialized = true;
    if (sampleRate > 0) setSampleRate(sampleRate);
}

void Driver::computeOrder() {
    typedef boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS> G;
    G g(graphs->size());
    for (size_t i = 0; i < graphs->size(); ++i) {
        std::vector<int> sources;
        for (int src : (*inputGraphs)[i])
            if (src >= 0 && std::find(sources.begin(), sources.end(), src) == sources.end()) sources.push_back(src);
        for (int src : sources) boost::add_edge(src, static_cast<int>(i), g);
    }
    std::vector<int> finished;
    try {
        boost::topological_sort(g, std::back_inserter(finished));
    } catch (const boost::not_a_dag&) {
        throw KELMException("Graphs do not form a DAG.");
    }
    order.assign(finished.rbegin(), finished.rend());
}

void Driver::computeMultipliers() {
    for (auto& g : *graphs) g->setInputMultiplier(1.0);
    for (int gi : order) {
        Graph& g = *(*graphs)[gi];
        double m = -1.0;
        for (int src : (*inputGraphs)[gi]) {
            double r = src < 0 ? 1.0 : (*graphs)[src]->getOutputMultiplier();
            if (m <= 0)
                m = r;
            else if (std::fabs(r - m) > 1e-10)
                throw KELMException("Invalid input multipliers for graph" + g.name());
        }
        if (m <= 0) m = 1.0;  // a graph without inputs runs at the system rate
        g.setInputMultiplier(m);
        (*inputMultipliers)[gi] = m;
    }
    for (int gi : *outputGraphs) {
        if (gi == -1) continue;
        double m = (*graphs)[gi]->getOutputMultiplier();
        if (m != 1.0) throw KELMException(str("Invalid multiplier. Expected 1 but got ", m));
    }
}

void Driver::resolveProperties() {
    std::set<std::tuple<std::string, std::string, std::string>> seen;
    for (auto& control : *controls) {
        for (auto& p : *control->getProperties()) {
            auto key = std::make_tuple(p->name, p->graphName, p->elementName);
            if (!seen.insert(key).second)
                throw KELMException("Driver: Multiple definitions of the same property. Property name: " + p->name +
                                    " graph: " + p->graphName + " element: " + p->elementName);
            auto it = graphsByName.find(p->graphName);
            if (it == graphsByName.end() || it->second < 0)
                throw KELMException("Invalid Property: Invalid graph name " + p->graphName + ". Property, name=" +
                                    p->name);
            p->graph = (*graphs)[it->second];
            if (!p->elementName.empty()) {
                Element* e = nullptr;
                try {
                    e = p->graph->getContext()->getElement(p->elementName);
                } catch (const KELMException&) {
                    e = nullptr;
                }
                if (!e)
                    throw KELMException("Invalid Property: Invalid element name " + p->elementName +
                                        ". Property, name=" + p->name);
                p->element = e;
            }
        }
    }
}

int Driver::roundedBlockSize(double multiplier) const {
    // A document may state any rate multiplier: blocks beyond 2^22 samples are refused
    // rather than allocated.
    const double frames = std::floor(static_cast<double>(maxBlockSize) * multiplier + 0.5);
    if (!(frames <= static_cast<double>(1 << 22)))
        throw KELMException(str("Driver: a graph would run blocks of ", frames, " samples (rate multiplier ", multiplier,
                                ")"));
    return static_cast<int>(frames);
}

void Driver::setSampleRate(scalar rate) {
    sampleRate = rate;
    if (initialized)
        for (size_t i = 0; i < graphs->size(); ++i)
            (*graphs)[i]->setSampleRate(static_cast<scalar>((*inputMultipliers)[i]) * rate);
}

void Driver::setMaxBlockSize(int n) {
    if (n < 1) throw InvalidArgumentException(str("Driver: maxBlockSize must be greater than zero. maxBlockSize=", n));
    maxBlockSize = n;
    if (initialized)
        for (size_t i = 0; i < graphs->size(); ++i) (*graphs)[i]->setMaxBlockSize(roundedBlockSize((*inputMultipliers)[i]));
}

Graph& Driver::getGraph(const std::string& name) {
    auto it = graphsByName.find(name);
    if (it == graphsByName.end() || it->second < 0)
        throw InvalidArgumentException(name + " is not a valid graph name.");
    return *(*graphs)[it->second];
}

void Driver::suspend(bool value) {
    while (processing.exchange(true, std::memory_order_acquire)) std::this_thread::yield();
    suspended.store(value);
    processing.store(false, std::memory_order_release);
}

int Driver::getNumberOfInputs() const {
    int n = 0;
    for (size_t g = 0; g < inputGraphs->size(); ++g)
        for (size_t i = 0; i < (*inputGraphs)[g].size(); ++i)
            if ((*inputGraphs)[g][i] == -1) n = std::max(n, (*inputNodes)[g][i] + 1);
    for (size_t o = 0; o < outputGraphs->size(); ++o)
        if ((*outputGraphs)[o] == -1) n = std::max(n, (*outputNodes)[o] + 1);
    return n;
}

ControlPtr Driver::findControl(const std::string& name) const {
    for (auto& c : *controls)
        if (c->name == name) return c;
    return nullptr;
}

void Driver::collectResults(const BufferList& inputs) {
    for (size_t o = 0; o < outputGraphs->size(); ++o) {
        int g = (*outputGraphs)[o];
        int node = (*outputNodes)[o];
        if (g == -1)
            results[o] = node >= 0 && node < static_cast<int>(inputs.size()) ? inputs[node] : nullptr;
        else
            results[o] = (*graphs)[g]->getResult(node);
    }
}

void Driver::applyControls() {
    for (auto& control : *controls) {
        if (!control->isChanged()) continue;
        if (!control->tryLock()) continue;
        for (auto& p : *control->getProperties()) {
            if (!p->element)
                p->graph->propertyChanged(p->name, p->value);
            else if (p->type == 0)
                p->element->propertyChanged(p->name, p->value);
            else if (p->type == 1)
                p->element->propertyChanged(p->name, p->vectorValue);
        }
        control->clearChanged();
        control->unlock();
    }
}

void Driver::process(const BufferList& inputs, size_t framesPerBuffer) {
    if (!initialized) throw KELMException("Cannot process. Driver is not initialized.");
    if (suspended.load()) throw KELMException("Driver: Cannot process. Driver is in the suspend state.");
    if (maxBlockSize < 0) throw KELMException("Driver: Cannot process. maxBlockSize is not set.");
    if (processing.exchange(true, std::memory_order_acquire)) {
        collectResults(inputs);
        return;
    }
    // suspend() may have slipped in between the check above and taking the flag: look again
    // now that no suspend can pass, so that no block starts after suspend(true) returned.
    // The flag is released on every way out, an exception from an element included, so that
    // a failed block leaves the system usable and a later suspend() does not wait forever.
    struct Release {
        std::atomic<bool>& flag;
        ~Release() { flag.store(false, std::memory_order_release); }
    } release{processing};
    if (suspended.load()) throw KELMException("Driver: Cannot process. Driver is in the suspend state.");
    applyControls();
    if (multipliersChanged.load()) {
        computeMultipliers();
        for (size_t i = 0; i < graphs->size(); ++i) {
            if (sampleRate > 0) (*graphs)[i]->setSampleRate(static_cast<scalar>((*inputMultipliers)[i]) * sampleRate);
            if (maxBlockSize > 0) (*graphs)[i]->setMaxBlockSize(roundedBlockSize((*inputMultipliers)[i]));
        }
        multipliersChanged.store(false);
    }
    BufferList& in = *graphInputs;
    for (int gi : order) {
        Graph& g = *(*graphs)[gi];
        const std::vector<int>& sources = (*inputGraphs)[gi];
        const std::vector<int>& nodes = (*inputNodes)[gi];
        in.resize(sources.size());
        for (size_t k = 0; k < sources.size(); ++k) {
            if (sources[k] == -1)
                in[k] = nodes[k] >= 0 && nodes[k] < static_cast<int>(inputs.size()) ? inputs[nodes[k]] : nullptr;
            else
                in[k] = (*graphs)[sources[k]]->getResult(nodes[k]);
        }
        size_t frames = static_cast<size_t>(
            std::floor(static_cast<double>(framesPerBuffer) * (*inputMultipliers)[gi] + 0.5));
        // A graph whose Multiplier promises more samples than its elements make would be read
        // past the end of its buffers: refuse instead.
        for (size_t k = 0; k < sources.size(); ++k) {
            if (sources[k] < 0) continue;
            const Graph& source = *(*graphs)[sources[k]];
            if (static_cast<size_t>(std::max(0, source.getResultCapacity(nodes[k]))) < frames)
                throw KELMException("Driver: graph " + g.name() + " needs " + std::to_string(frames) +
                                    " samples per block from graph " + source.name() + ", which holds " +
                                    std::to_string(source.getResultCapacity(nodes[k])) +
                                    ". Does its Multiplier match what its elements do?");
        }
        g.process(in, frames);
    }
    collectResults(inputs);
}

} // namespace kelm
