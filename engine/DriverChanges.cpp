// The Driver's part in changes made while the system plays: control values delivered at
// once, gliding, or carried out on the spare instances of the graphs a switch concerns.
#include <algorithm>
#include <cmath>

#include "engine/Context.h"
#include "engine/Driver.h"
#include "engine/Element.h"
#include "engine/KELMException.h"
#include "engine/NewParser.h"
#include "engine/Str.h"

namespace kelm {

namespace {

void deliverTo(Graph* graph, Element* element, const Property& p, scalar value, const ScalarVectorPtr& vector) {
    if (!element) {
        if (graph) graph->propertyChanged(p.name, value);
    } else if (p.type == 0) {
        element->propertyChanged(p.name, value);
    } else if (p.type == 1) {
        element->propertyChanged(p.name, vector);
    }
}

} // namespace

void Driver::resolveTargets() {
    targets.assign(controls->size(), {});
    structural.assign(controls->size(), 0);
    gliding = 0;
    for (size_t c = 0; c < controls->size(); ++c) {
        for (const PropertyPtr& p : *(*controls)[c]->getProperties()) {
            Target t;
            t.graph = graphsByName.at(p->graphName);
            t.element[0] = p->element;
            targets[c].push_back(t);
            if (!p->element || p->element->changesStructure(p->name)) structural[c] = 1;
        }
    }
}

void Driver::setSmoothChanges(bool on) {
    finishChange();
    finishGlides();
    smooth = on;
    if (on && initialized && spares.empty()) buildSpares();
}

void Driver::buildSpares() {
    NewParser parser;
    parser.parse(document);
    if (parser.graphs->size() != graphs->size()) throw KELMException("Driver: the spare graphs differ from the graphs");
    spares = *parser.graphs;
    for (size_t i = 0; i < spares.size(); ++i) {
        Graph& g = *spares[i];
        // A spare's rate is the Driver's to set: it tells nobody of its multipliers.
        g.getContext()->setDriver(nullptr);
        g.init();
        g.setInputMultiplier((*inputMultipliers)[i]);
        if (maxBlockSize > 0) g.setMaxBlockSize(roundedBlockSize((*inputMultipliers)[i]));
        if (sampleRate > 0) g.setSampleRate(static_cast<scalar>((*inputMultipliers)[i]) * sampleRate);
        if (warming) g.holdOn(true);
    }
    for (size_t c = 0; c < controls->size(); ++c) {
        const auto& props = *(*controls)[c]->getProperties();
        for (size_t k = 0; k < props.size(); ++k) {
            Target& t = targets[c][k];
            t.element[1] = props[k]->elementName.empty()
                               ? nullptr
                               : spares[t.graph]->getContext()->getElement(props[k]->elementName);
            // What the playing graphs have had, the spares have with the next block.
            if (t.delivered) {
                t.delivered = false;
                (*controls)[c]->setValue((*controls)[c]->getValue());
            }
        }
    }
    sizeBuffers();
}

void Driver::applyControls() {
    const bool immediate = !smooth || warming || spares.empty();
    const size_t glide = std::max<size_t>(1, static_cast<size_t>(std::lround(kGlideSeconds * sampleRate)));
    bool beginning = false;
    for (size_t c = 0; c < controls->size(); ++c) {
        Control& control = *(*controls)[c];
        if (!control.isChanged()) continue;
        const auto& props = *control.getProperties();
        std::vector<Target>& ts = targets[c];
        const bool first = std::any_of(ts.begin(), ts.end(), [](const Target& t) { return !t.delivered; });
        if (structural[c] && !immediate && !first) {
            if (change.active) continue;  // waits for the change under way
            if (!control.tryLock()) continue;
            for (size_t k = 0; k < props.size(); ++k) {
                ts[k].value = props[k]->value;
                ts[k].vectorValue = props[k]->vectorValue;
            }
            control.clearChanged();
            control.unlock();
            if (!beginning) {
                beginning = true;
                std::fill(change.changed.begin(), change.changed.end(), 0);
                change.controls.clear();
            }
            for (size_t k = 0; k < props.size(); ++k) {
                deliverTo(spares[ts[k].graph].get(), ts[k].element[1], *props[k], ts[k].value, ts[k].vectorValue);
                change.changed[ts[k].graph] = 1;
            }
            change.controls.push_back(static_cast<int>(c));
            continue;
        }
        if (!control.tryLock()) continue;
        for (size_t k = 0; k < props.size(); ++k) {
            const Property& p = *props[k];
            Target& t = ts[k];
            if (t.remaining > 0) --gliding;
            t.remaining = 0;
            if (!immediate && !structural[c] && t.delivered && p.element && p.type == 0 && sampleRate > 0) {
                t.goal = p.value;
                t.step = (t.goal - t.current) / static_cast<scalar>(glide);
                t.remaining = t.goal != t.current ? glide : 0;
                if (t.remaining > 0) ++gliding;
            } else {
                deliverTo((*graphs)[t.graph].get(), t.element[0], p, p.value, p.vectorValue);
                if (!spares.empty()) deliverTo(spares[t.graph].get(), t.element[1], p, p.value, p.vectorValue);
                t.current = t.goal = p.value;
            }
            t.delivered = true;
        }
        control.clearChanged();
        control.unlock();
    }
    if (beginning) beginChange();
}

void Driver::advanceGlides(size_t frames) {
    for (size_t c = 0; c < targets.size(); ++c) {
        const auto& props = *(*controls)[c]->getProperties();
        for (size_t k = 0; k < targets[c].size(); ++k) {
            Target& t = targets[c][k];
            if (t.remaining == 0) continue;
            if (t.remaining <= frames) {
                t.current = t.goal;
                t.remaining = 0;
                --gliding;
            } else {
                t.current += t.step * static_cast<scalar>(frames);
                t.remaining -= frames;
            }
            t.element[0]->propertyChanged(props[k]->name, t.current);
            if (t.element[1]) t.element[1]->propertyChanged(props[k]->name, t.current);
        }
    }
}

void Driver::finishGlides() {
    if (gliding > 0) advanceGlides(static_cast<size_t>(-1));
}

void Driver::arrangementMultipliers(const std::vector<char>& pick, std::vector<double>& m) const {
    // As computeMultipliers, for the graphs of the playing instances and of the spares that
    // `pick` chooses, without touching them.
    for (int gi : order) {
        double in = -1.0;
        for (int src : (*inputGraphs)[gi]) {
            double r = 1.0;
            if (src >= 0) {
                const Graph& s = pick[src] ? *spares[src] : *(*graphs)[src];
                r = (s.isOff() || s.isBypassed()) ? m[src] : m[src] * s.getMultiplier();
            }
            if (in <= 0)
                in = r;
            else if (std::fabs(r - in) > 1e-10)
                throw KELMException("Invalid input multipliers for graph" + (*graphs)[gi]->name());
        }
        m[gi] = in <= 0 ? 1.0 : in;
    }
    for (int gi : *outputGraphs) {
        if (gi == -1) continue;
        const Graph& g = pick[gi] ? *spares[gi] : *(*graphs)[gi];
        const double r = (g.isOff() || g.isBypassed()) ? m[gi] : m[gi] * g.getMultiplier();
        if (r != 1.0) throw KELMException(str("Invalid multiplier. Expected 1 but got ", r));
    }
}

void Driver::beginChange() {
    const size_t n = graphs->size();
    // The rates of the new arrangement: graphs whose rate moves join the change.
    arrangementMultipliers(change.changed, change.multipliers);
    for (size_t i = 0; i < n; ++i)
        if (std::fabs(change.multipliers[i] - (*inputMultipliers)[i]) > 1e-10) change.changed[i] = 1;
    // So do the graphs between two changed ones: a graph that both reads the change and
    // feeds it runs in the old arrangement and in the new, each with its own signal.
    for (int gi : order) {
        change.down[gi] = change.changed[gi];
        for (int src : (*inputGraphs)[gi])
            if (src >= 0 && change.down[src]) change.down[gi] = 1;
    }
    std::fill(change.up.begin(), change.up.end(), 0);
    for (auto it = order.rbegin(); it != order.rend(); ++it) {
        if (change.changed[*it]) change.up[*it] = 1;
        if (!change.up[*it]) continue;
        for (int src : (*inputGraphs)[*it])
            if (src >= 0) change.up[src] = 1;
    }
    for (size_t i = 0; i < n; ++i)
        if (change.down[i] && change.up[i]) change.changed[i] = 1;
    for (size_t i = 0; i < n; ++i) {
        if (!change.changed[i]) continue;
        Graph& g = *spares[i];
        g.setInputMultiplier(change.multipliers[i]);
        if (maxBlockSize > 0) g.setMaxBlockSize(roundedBlockSize(change.multipliers[i]));
        if (sampleRate > 0) g.setSampleRate(static_cast<scalar>(change.multipliers[i]) * sampleRate);
    }
    // The outputs that leave the change (to a graph outside it, or out of the system) are
    // crossfaded; at the rate they have both before and after.
    std::fill(change.mixed.begin(), change.mixed.end(), 0);
    for (size_t k = 0; k < n; ++k)
        if (!change.changed[k])
            for (int src : (*inputGraphs)[k])
                if (src >= 0 && change.changed[src]) change.mixed[src] = 1;
    for (int g : *outputGraphs)
        if (g >= 0 && change.changed[g]) change.mixed[g] = 1;
    for (size_t i = 0; i < n; ++i) {
        if (!change.mixed[i]) continue;
        const size_t frames = static_cast<size_t>(roundedBlockSize((*graphs)[i]->getOutputMultiplier()));
        for (auto& mix : mixes[i])
            if (mix.size() < frames) mix.resize(frames, 0.0f);  // sized by sizeBuffers for every rate seen
    }
    change.elapsed = 0;
    change.preroll = static_cast<size_t>(std::lround(kPrerollSeconds * sampleRate));
    change.fade = std::max<size_t>(1, static_cast<size_t>(std::lround(kFadeSeconds * sampleRate)));
    change.active = true;
}

void Driver::finishChange() {
    if (!change.active) return;
    change.active = false;
    const size_t n = graphs->size();
    for (size_t i = 0; i < n; ++i) {
        if (!change.changed[i]) continue;
        std::swap((*graphs)[i], spares[i]);
        (*graphs)[i]->getContext()->setDriver(this);
        spares[i]->getContext()->setDriver(nullptr);
        (*inputMultipliers)[i] = change.multipliers[i];
    }
    for (size_t c = 0; c < targets.size(); ++c) {
        const auto& props = *(*controls)[c]->getProperties();
        for (size_t k = 0; k < targets[c].size(); ++k) {
            Target& t = targets[c][k];
            if (!change.changed[t.graph]) continue;
            std::swap(t.element[0], t.element[1]);
            props[k]->graph = (*graphs)[t.graph];
            props[k]->element = t.element[0];
        }
    }
    // The instances just replaced are the spares now: they take what the change brought in,
    // and the rates of the new arrangement.
    for (int c : change.controls) {
        const auto& props = *(*controls)[c]->getProperties();
        for (size_t k = 0; k < props.size(); ++k) {
            const Target& t = targets[c][k];
            deliverTo(spares[t.graph].get(), t.element[1], *props[k], t.value, t.vectorValue);
        }
    }
    for (size_t i = 0; i < n; ++i) {
        if (!change.changed[i]) continue;
        Graph& g = *spares[i];
        g.setInputMultiplier(change.multipliers[i]);
        if (maxBlockSize > 0) g.setMaxBlockSize(roundedBlockSize(change.multipliers[i]));
        if (sampleRate > 0) g.setSampleRate(static_cast<scalar>(change.multipliers[i]) * sampleRate);
    }
}

void Driver::refreshRates() {
    // After a change that took effect at once: the rates of the playing graphs, and of the
    // spares, which are arranged alike.
    computeMultipliers();
    for (size_t i = 0; i < graphs->size(); ++i) {
        const double m = (*inputMultipliers)[i];
        for (Graph* g : {(*graphs)[i].get(), spares.empty() ? nullptr : spares[i].get()}) {
            if (!g) continue;
            if (g != (*graphs)[i].get()) g->setInputMultiplier(m);
            if (sampleRate > 0) g->setSampleRate(static_cast<scalar>(m) * sampleRate);
            if (maxBlockSize > 0) g->setMaxBlockSize(roundedBlockSize(m));
        }
    }
    sizeBuffers();
}

void Driver::sizeBuffers() {
    // Buffers only grow, so that a rate seen once (the warm-up goes through them all) never
    // allocates again.
    if (maxBlockSize < 1) return;
    outputs.resize(outputGraphs->size());
    for (auto& o : outputs)
        if (o.size() < static_cast<size_t>(maxBlockSize)) o.resize(maxBlockSize, 0.0f);
    if (spares.empty()) return;
    for (size_t i = 0; i < graphs->size(); ++i) {
        const double m = std::max((*inputMultipliers)[i], (*graphs)[i]->getOutputMultiplier());
        const size_t frames = static_cast<size_t>(roundedBlockSize(m));
        for (auto& mix : mixes[i])
            if (mix.size() < frames) mix.resize(frames, 0.0f);
    }
}

void Driver::setWarming(bool on) {
    if (on == warming) return;
    finishChange();
    finishGlides();
    warming = on;
    for (auto& g : *graphs) g->holdOn(on);
    for (auto& g : spares) g->holdOn(on);
    multipliersChanged.store(false);
    refreshRates();
}

} // namespace kelm
