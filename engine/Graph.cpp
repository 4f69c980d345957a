#include "engine/Graph.h"

#include <algorithm>
#include <cstdlib>

#include "engine/Context.h"
#include "engine/Driver.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

void Graph::setNumberOfInputs(int n) {
    if (n < 0) throw InvalidArgumentException(str("Number of inputs must be greater than zero. Number of inputs =", n));
    numberOfInputs = n;
}

scalar* Graph::getResult(const std::string&) {
    throw KELMException("Graph::getResult(std::string outputName) is not yet implemented.");
}

scalar* Graph::getResult(int index) {
    if (index < 0 || index >= numberOfOutputs)
        throw InvalidArgumentException(
            str("Graph: invalid output index: ", index, " Number of outputs: ", numberOfOutputs));
    return results[index];
}

bool Graph::canRunBeside(const Graph&) const { return false; }

void Graph::processTwin(Graph& other, BufferList& inputs, BufferList& otherInputs, size_t framesPerBuffer) {
    process(inputs, framesPerBuffer);
    other.process(otherInputs, framesPerBuffer);
}

bool Graph::plainBeside(const Graph& other, size_t frames) const {
    const int limit = std::min(maxBlockSize, other.maxBlockSize);
    return &other != this && !bypass && !off && !other.bypass && !other.off && limit > 0 &&
           frames <= static_cast<size_t>(limit);
}

void Graph::setRequest(std::vector<bool>& requests, bool value, int index) {
    if (index < 0) index = 0;
    if (static_cast<size_t>(index) + 1 > requests.size()) requests.resize(index + 1, false);
    requests[index] = value;
    applyRequests();
}

void Graph::applyRequests() {
    auto any = [](const std::vector<bool>& requests) {
        return std::find(requests.begin(), requests.end(), true) != requests.end();
    };
    off = !held && any(offRequests);
    bypass = !held && any(bypassRequests);
    if (multiplier != 1.0) {
        auto ctx = getContext();
        if (ctx && ctx->driver()) ctx->driver()->setMultipliersChanged();
    }
}

void Graph::holdOn(bool on) {
    held = on;
    applyRequests();
}

void Graph::setOff(bool value, int index) { setRequest(offRequests, value, index); }

void Graph::setBypass(bool value, int index) { setRequest(bypassRequests, value, index); }

void Graph::setSuspended(bool value, int) {
    if (multiplier != 1.0)
        throw KELMException(
            str("Graph: Cannot suspend a graph with the multiplier not equal to 1. multiplier=", multiplier));
    suspended = value;
}

void Graph::setInputMultiplier(double m) {
    inputMultiplier = m;
    outputMultiplier = multiplier * m;
}

double Graph::getOutputMultiplier() const { return (off || bypass) ? inputMultiplier : outputMultiplier; }

void Graph::setMultiplier(double m) {
    multiplier = m;
    outputMultiplier = inputMultiplier * m;
}

void Graph::setProperties(const PropertyMapPtr& properties) {
    if (!properties) return;
    bool flag = false;
    if (properties->readOptional("Off", flag)) setOff(flag, 0);
    if (properties->readOptional("Bypass", flag)) setBypass(flag, 0);
}

void Graph::propertyChanged(const std::string& name, scalar value) {
    // "Off", "Bypass" or "Suspend", optionally "_" and an index: "Bypass_1". Parsed in place,
    // since controls reach here on the audio thread. A name with more than one "_" keeps index 0.
    const size_t cut = name.find('_');
    const size_t length = cut == std::string::npos ? name.size() : cut;
    const bool indexed = cut != std::string::npos && name.find('_', cut + 1) == std::string::npos;
    const int index = indexed ? std::atoi(name.c_str() + cut + 1) : 0;
    const bool flag = value > 0.5f;
    if (name.compare(0, length, "Off") == 0)
        setOff(flag, index);
    else if (name.compare(0, length, "Bypass") == 0)
        setBypass(flag, index);
    else if (name.compare(0, length, "Suspend") == 0)
        setSuspended(flag, 0);
    else
        throw InvalidArgumentException("Graph: Unknown property " + name);
}

} // namespace kelm
