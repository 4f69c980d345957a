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
      twinInputs(std::make_shared<BufferList>()),
      controls(std::make_shared<std::vector<ControlPtr>>()) {}

Driver::~Driver() {
    // Graphs hold plain back references to this driver through their contexts.
    for (auto& g : *graphs)
        if (g && g->getContext()) g->getContext()->setDriver(nullptr);
}

void Driver::init(const std::string& document) {
    NewParser parser;
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
    twinInputs->assign(widest, nullptr);
    inputMultipliers->assign(graphs->size(), 1.0);
    computeMultipliers();
    results.assign(outputGraphs->size(), nullptr);
    for (size_t i = 0; i < graphs->size(); ++i) {
        (*graphs)[i]->init();
        if (maxBlockSize > 0) (*graphs)[i]->setMaxBlockSize(roundedBlockSize((*inputMultipliers)[i]));
    }
    controls = parser.controls;
    resolveProperties();
    computeSchedule();
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

void Driver::computeSchedule() {
    // List scheduling over the data flow: of the graphs whose sources have all run, two built
    // alike run together; else one that nothing left could run beside; else the first in
    // the order of data flow. Two graphs that are ready at once cannot depend on each other.
    // Large systems (generated ones) keep the plain order.
    const size_t n = graphs->size();
    schedule.clear();
    if (n > 256) {
        for (int gi : order) schedule.emplace_back(gi, -1);
        return;
    }
    std::vector<std::vector<char>> alike(n, std::vector<char>(n, 0));
    for (size_t a = 0; a < n; ++a)
        for (size_t b = a + 1; b < n; ++b)
            alike[a][b] = alike[b][a] = (*graphs)[a]->canRunBeside(*(*graphs)[b]);
    std::vector<bool> done(n, false);
    auto isReady = [&](int g) {
        if (done[g]) return false;
        for (int src : (*inputGraphs)[g])
            if (src >= 0 && !done[src]) return false;
        return true;
    };
    std::vector<int> ready;
    for (size_t left = n; left > 0;) {
        ready.clear();
        for (int gi : order)
            if (isReady(gi)) ready.push_back(gi);
        if (ready.empty()) break;  // cannot happen for an ordered DAG
        std::pair<int, int> step(-1, -1);
        for (size_t a = 0; a < ready.size() && step.first < 0; ++a)
            for (size_t b = a + 1; b < ready.size(); ++b)
                if (alike[ready[a]][ready[b]]) {
                    step = {ready[a], ready[b]};
                    break;
                }
        for (size_t a = 0; a < ready.size() && step.first < 0; ++a) {
            bool lonely = true;
            for (size_t b = 0; b < n && lonely; ++b)
                if (!done[b] && static_cast<int>(b) != ready[a] && alike[ready[a]][b]) lonely = false;
            if (lonely) step.first = ready[a];
        }
        if (step.first < 0) step.first = ready.front();
        done[step.first] = true;
        --left;
        if (step.second >= 0) {
            done[step.second] = true;
            --left;
        }
        schedule.push_back(step);
    }
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

size_t Driver::gatherInputs(int gi, const BufferList& inputs, BufferList& in, size_t framesPerBuffer) {
    const Graph& g = *(*graphs)[gi];
    const std::vector<int>& sources = (*inputGraphs)[gi];
    const std::vector<int>& nodes = (*inputNodes)[gi];
    in.resize(sources.size());
    for (size_t k = 0; k < sources.size(); ++k) {
        if (sources[k] == -1)
            in[k] = nodes[k] >= 0 && nodes[k] < static_cast<int>(inputs.size()) ? inputs[nodes[k]] : nullptr;
        else
            in[k] = (*graphs)[sources[k]]->getResult(nodes[k]);
    }
    const size_t frames =
        static_cast<size_t>(std::floor(static_cast<double>(framesPerBuffer) * (*inputMultipliers)[gi] + 0.5));
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
    return frames;
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
    if (!twinning) {
        for (int gi : order) {
            const size_t frames = gatherInputs(gi, inputs, in, framesPerBuffer);
            (*graphs)[gi]->process(in, frames);
        }
    } else {
        BufferList& twinIn = *twinInputs;
        for (const auto& step : schedule) {
            Graph& g = *(*graphs)[step.first];
            const size_t frames = gatherInputs(step.first, inputs, in, framesPerBuffer);
            if (step.second < 0) {
                g.process(in, frames);
                continue;
            }
            Graph& twin = *(*graphs)[step.second];
            const size_t twinFrames = gatherInputs(step.second, inputs, twinIn, framesPerBuffer);
            if (frames == twinFrames) {
                g.processTwin(twin, in, twinIn, frames);
            } else {  // the two run at different rates just now
                g.process(in, frames);
                twin.process(twinIn, twinFrames);
            }
        }
    }
    collectResults(inputs);
}

} // namespace kelm
