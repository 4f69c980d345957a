#include "engine/Driver.h"

#include <cmath>
#include <cstring>
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
    for (auto& g : spares)
        if (g && g->getContext()) g->getContext()->setDriver(nullptr);
}

void Driver::init(const std::string& text) {
    NewParser parser;
    parser.parse(text);
    document = text;
    change.active = false;
    spares.clear();
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
    resolveTargets();
    const size_t n = graphs->size();
    change.changed.assign(n, 0);
    change.mixed.assign(n, 0);
    change.down.assign(n, 0);
    change.up.assign(n, 0);
    change.multipliers.assign(n, 1.0);
    change.controls.clear();
    change.controls.reserve(controls->size());
    mixes.assign(n, {});
    for (size_t i = 0; i < n; ++i) mixes[i].resize(std::max(0, (*graphs)[i]->getNumberOfOutputs()));
    stepInputs.reserve(static_cast<size_t>(std::max(2, getNumberOfInputs())));
    if (smooth) buildSpares();
    if (sampleRate > 0) setSampleRate(sampleRate);
    sizeBuffers();
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
    finishChange();
    finishGlides();
    sampleRate = rate;
    if (!initialized) return;
    for (size_t i = 0; i < graphs->size(); ++i) {
        const scalar r = static_cast<scalar>((*inputMultipliers)[i]) * rate;
        (*graphs)[i]->setSampleRate(r);
        if (!spares.empty()) spares[i]->setSampleRate(r);
    }
}

void Driver::setMaxBlockSize(int n) {
    if (n < 1) throw InvalidArgumentException(str("Driver: maxBlockSize must be greater than zero. maxBlockSize=", n));
    finishChange();
    maxBlockSize = n;
    if (!initialized) return;
    for (size_t i = 0; i < graphs->size(); ++i) {
        const int frames = roundedBlockSize((*inputMultipliers)[i]);
        (*graphs)[i]->setMaxBlockSize(frames);
        if (!spares.empty()) spares[i]->setMaxBlockSize(frames);
    }
    sizeBuffers();
}

Graph& Driver::getGraph(const std::string& name) {
    auto it = graphsByName.find(name);
    if (it == graphsByName.end() || it->second < 0)
        throw InvalidArgumentException(name + " is not a valid graph name.");
    return *(*graphs)[it->second];
}

std::array<Graph*, 2> Driver::getGraphInstances(const std::string& name) {
    Graph& playing = getGraph(name);
    return {&playing, spares.empty() ? nullptr : spares[graphsByName.at(name)].get()};
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

void Driver::checkCapacity(int gi, const Graph& source, int node, size_t capacity, size_t frames) const {
    // A graph whose Multiplier promises more samples than its elements make would be read
    // past the end of its buffers: refuse instead.
    if (capacity < frames)
        throw KELMException("Driver: graph " + (*graphs)[gi]->name() + " needs " + std::to_string(frames) +
                            " samples per block from graph " + source.name() + ", which holds " +
                            std::to_string(source.getResultCapacity(node)) +
                            ". Does its Multiplier match what its elements do?");
}

size_t Driver::gather(int gi, const BufferList& inputs, BufferList& in, size_t framesPerBuffer, Side side) {
    const std::vector<int>& sources = (*inputGraphs)[gi];
    const std::vector<int>& nodes = (*inputNodes)[gi];
    const double multiplier = side == Side::Spare ? change.multipliers[gi] : (*inputMultipliers)[gi];
    const size_t frames = static_cast<size_t>(std::floor(static_cast<double>(framesPerBuffer) * multiplier + 0.5));
    in.resize(sources.size());
    for (size_t k = 0; k < sources.size(); ++k) {
        const int src = sources[k], node = nodes[k];
        if (src == -1) {
            in[k] = node >= 0 && node < static_cast<int>(inputs.size()) ? inputs[node] : nullptr;
            continue;
        }
        const bool changed = side != Side::Playing && side != Side::Spares && change.changed[src];
        const bool spare = side == Side::Spares || (side == Side::Spare && changed);
        const Graph& source = spare ? *spares[src] : *(*graphs)[src];
        if (side == Side::Joined && changed && mixing) {
            const std::vector<scalar>& mix = mixes[src][node];
            checkCapacity(gi, source, node, mix.size(), frames);
            in[k] = const_cast<scalar*>(mix.data());
            continue;
        }
        checkCapacity(gi, source, node, static_cast<size_t>(std::max(0, source.getResultCapacity(node))), frames);
        in[k] = (spare ? spares[src] : (*graphs)[src])->getResult(node);
    }
    return frames;
}

double Driver::fadeGain(double t) const {
    // t: frames at the system rate since the change began.
    const double x = (t - static_cast<double>(change.preroll)) / static_cast<double>(change.fade);
    if (x <= 0) return 0.0;
    if (x >= 1) return 1.0;
    return 0.5 - 0.5 * std::cos(3.14159265358979323846 * x);
}

void Driver::mixOutputs(int gi, size_t frames) {
    Graph& playing = *(*graphs)[gi];
    Graph& spare = *spares[gi];
    const double rate = playing.getOutputMultiplier();
    const size_t n = static_cast<size_t>(std::floor(static_cast<double>(frames) * rate + 0.5));
    const double start = static_cast<double>(change.elapsed);
    for (int o = 0; o < playing.getNumberOfOutputs(); ++o) {
        const scalar* a = playing.getResult(o);
        const scalar* b = spare.getResult(o);
        std::vector<scalar>& mix = mixes[gi][o];
        const size_t count = std::min(n, mix.size());
        for (size_t s = 0; s < count; ++s) {
            const scalar g = static_cast<scalar>(fadeGain(start + (static_cast<double>(s) + 0.5) / rate));
            mix[s] = a[s] + g * (b[s] - a[s]);
        }
    }
}

void Driver::runGraphs(const BufferList& inputs, size_t framesPerBuffer) {
    BufferList& in = *graphInputs;
    if (change.active) {
        // Graph by graph in the order of data flow: a changed graph as it was and its spare as
        // it is to be, the spare's outputs crossfaded in where they leave the change.
        mixing = change.elapsed + framesPerBuffer > change.preroll;
        for (int gi : order) {
            if (!change.changed[gi]) {
                (*graphs)[gi]->process(in, gather(gi, inputs, in, framesPerBuffer, Side::Joined));
                continue;
            }
            (*graphs)[gi]->process(in, gather(gi, inputs, in, framesPerBuffer, Side::Playing));
            spares[gi]->process(in, gather(gi, inputs, in, framesPerBuffer, Side::Spare));
            if (mixing && change.mixed[gi]) mixOutputs(gi, framesPerBuffer);
        }
        return;
    }
    if (!twinning) {
        for (int gi : order) (*graphs)[gi]->process(in, gather(gi, inputs, in, framesPerBuffer, Side::Playing));
    } else {
        BufferList& twinIn = *twinInputs;
        for (const auto& step : schedule) {
            Graph& g = *(*graphs)[step.first];
            const size_t frames = gather(step.first, inputs, in, framesPerBuffer, Side::Playing);
            if (step.second < 0) {
                g.process(in, frames);
                continue;
            }
            Graph& twin = *(*graphs)[step.second];
            const size_t twinFrames = gather(step.second, inputs, twinIn, framesPerBuffer, Side::Playing);
            if (frames == twinFrames) {
                g.processTwin(twin, in, twinIn, frames);
            } else {  // the two run at different rates just now
                g.process(in, frames);
                twin.process(twinIn, twinFrames);
            }
        }
    }
    // Warming up, the spares run a system of their own on the same input.
    if (warming && !spares.empty())
        for (int gi : order) spares[gi]->process(in, gather(gi, inputs, in, framesPerBuffer, Side::Spares));
}

void Driver::collectStep(const BufferList& inputs, size_t offset, size_t frames, bool copy) {
    for (size_t o = 0; o < outputGraphs->size(); ++o) {
        const int g = (*outputGraphs)[o];
        const int node = (*outputNodes)[o];
        scalar* r;
        if (g == -1)
            r = node >= 0 && node < static_cast<int>(inputs.size()) ? inputs[node] : nullptr;
        else if (change.active && change.changed[g] && mixing)
            r = mixes[g][node].data();
        else
            r = (*graphs)[g]->getResult(node);
        if (!copy) {
            results[o] = r;
        } else {
            scalar* out = outputs[o].data() + offset;
            if (r)
                std::memmove(out, r, frames * sizeof(scalar));
            else
                std::memset(out, 0, frames * sizeof(scalar));
            results[o] = outputs[o].data();
        }
    }
}

bool Driver::stepsFit(size_t frames) const {
    // Steps of kGlideStep frames give every graph a whole number of frames.
    if (frames <= kGlideStep) return false;
    for (size_t i = 0; i < graphs->size(); ++i) {
        for (double m : {(*inputMultipliers)[i], change.active ? change.multipliers[i] : 1.0}) {
            const double f = static_cast<double>(kGlideStep) * m;
            if (std::fabs(f - std::floor(f + 0.5)) > 1e-9) return false;
        }
    }
    return true;
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
        refreshRates();
        multipliersChanged.store(false);
    }
    // While a property glides, the block runs in steps, each after the glide has moved on;
    // once every glide has reached its goal, the rest of the block runs in one piece.
    size_t step = gliding > 0 && stepsFit(framesPerBuffer) ? kGlideStep : framesPerBuffer;
    const bool copy = step < framesPerBuffer;
    for (size_t offset = 0, frames = 0; offset < framesPerBuffer; offset += frames) {
        if (gliding == 0) step = framesPerBuffer;
        frames = std::min(step, framesPerBuffer - offset);
        if (gliding > 0) advanceGlides(frames);
        const BufferList* in = &inputs;
        if (offset > 0) {
            stepInputs.resize(inputs.size());
            for (size_t k = 0; k < inputs.size(); ++k) stepInputs[k] = inputs[k] ? inputs[k] + offset : nullptr;
            in = &stepInputs;
        }
        mixing = false;
        runGraphs(*in, frames);
        collectStep(*in, offset, frames, copy);
        if (change.active) change.elapsed += frames;
    }
    if (change.active && change.elapsed >= change.preroll + change.fade) finishChange();
}

} // namespace kelm
