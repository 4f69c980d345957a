#include "plugin/core/CircuitDocument.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>

#include <pugixml.hpp>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <time.h>
#endif

#include "dsp/DSPContext.h"
#include "dsp/IirDecimator.h"
#include "dsp/IirInterpolator.h"
#include "engine/Driver.h"
#include "engine/KELMException.h"
#include "netlist/NetlistError.h"
#include "netlist/NetlistImporter.h"
#include "netlist/SystemDescription.h"
#include "plugin/core/DenormalGuard.h"
#include "plugin/core/DocumentError.h"
#include "solvers/EngineTypes.h"

namespace kelm {

namespace {

// The computing time of the calling thread in seconds: a load is judged by the work it takes,
// not by how busy the machine is while it is built.
double threadSeconds() {
#ifdef _WIN32
    FILETIME created, ended, kernel, user;
    if (GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user)) {
        auto ticks = [](const FILETIME& t) { return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime; };
        return static_cast<double>(ticks(kernel) + ticks(user)) * 1e-7;  // 100 ns ticks
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
#else
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
#endif
}

int lineAt(const std::string& text, size_t offset) {
    offset = std::min(offset, text.size());
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n'));
}

// Bytes that are no text: empty, too long, or holding a NUL.
void checkText(const std::string& text, const std::string& fileName) {
    if (text.empty()) throw DocumentError(DocumentError::Empty, fileName, 0, "the document is empty");
    if (text.size() > CircuitDocument::kMaxTextBytes)
        throw DocumentError(DocumentError::TooLarge, fileName, 0,
                            "the document has " + std::to_string(text.size()) + " bytes, more than the " +
                                std::to_string(CircuitDocument::kMaxTextBytes) + " a document may have");
    const size_t nul = text.find('\0');
    if (nul != std::string::npos)
        throw DocumentError(DocumentError::Binary, fileName, lineAt(text, nul),
                            "binary data (a NUL byte at offset " + std::to_string(nul) +
                                "): not a system description or a netlist");
}

// A netlist's element lines, counted before the import so that a huge one is refused at once.
void checkNetlistSize(const std::string& text, const std::string& fileName) {
    int elements = 0, line = 0;
    for (size_t start = 0; start < text.size(); ++line) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        size_t p = start;
        while (p < end && (text[p] == ' ' || text[p] == '\t')) ++p;
        // The first line is the title; a card starts with its element's letter.
        if (line > 0 && p < end && std::isalpha(static_cast<unsigned char>(text[p])) &&
            ++elements > CircuitDocument::kMaxElements)
            throw DocumentError(DocumentError::TooLarge, fileName, line + 1,
                                "more than " + std::to_string(CircuitDocument::kMaxElements) +
                                    " elements, the most a document may have");
        start = end + 1;
    }
}

// The netlist's message without the place the importer put before it.
std::string withoutPlace(const NetlistError& e) {
    const std::string& m = e.message();
    if (!e.file().empty()) {
        const std::string place = e.line() > 0 ? e.file() + ":" + std::to_string(e.line()) + ": " : e.file() + ": ";
        if (m.compare(0, place.size(), place) == 0) return m.substr(place.size());
    }
    return m;
}

size_t countElements(const pugi::xml_node& node) {
    size_t n = 0;
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        if (std::strcmp(child.name(), "Element") == 0) ++n;
        n += countElements(child);
    }
    return n;
}

// The line of the first element named in an engine message, else 0. The engine's messages
// name the offending element, graph or control but carry no line.
int lineNamedIn(const std::string& text, const std::string& message) {
    size_t best = std::string::npos, bestLength = 0;
    for (size_t p = text.find("Name=\""); p != std::string::npos; p = text.find("Name=\"", p + 6)) {
        const size_t start = p + 6, end = text.find('"', start);
        if (end == std::string::npos) break;
        const std::string name = text.substr(start, end - start);
        if (name.size() > bestLength && message.find(name) != std::string::npos) {
            best = p;
            bestLength = name.size();
        }
    }
    return best == std::string::npos ? 0 : lineAt(text, best);
}

std::string describeException(const std::exception_ptr& e) {
    try {
        std::rethrow_exception(e);
    } catch (const KELMException& k) {
        return k.message();
    } catch (const std::exception& s) {
        return s.what();
    } catch (...) {
        return "unknown failure";
    }
}

} // namespace

CircuitDocument::CircuitDocument(const std::string& text, const std::string& fileName, const Settings& settings,
                                 const SlotValues& slotValues)
    : built(settings) {
    registerEngineTypes();
    if (!(built.sampleRate > 0) || built.maxBlockSize < 1)
        throw DocumentError(DocumentError::Build, fileName, 0, "no sample rate or block size to build for");
    if (built.oversampling != 1 && built.oversampling != 2 && built.oversampling != 4 && built.oversampling != 8)
        built.oversampling = 1;
    checkText(text, fileName);
    std::string description = text;
    if (isNetlist(text, fileName)) {
        checkNetlistSize(text, fileName);
        NetlistImporter::Options options;
        options.rate = built.sampleRate * built.oversampling;
        try {
            description = NetlistImporter(options).import(text, fileName).document;
        } catch (const NetlistError& e) {
            throw DocumentError(e.kind() == NetlistError::TooLarge ? DocumentError::TooLarge : DocumentError::Netlist,
                                e.file().empty() ? fileName : e.file(), e.line(), withoutPlace(e));
        } catch (const KELMException& e) {
            throw DocumentError(DocumentError::Netlist, fileName, 0, e.message());
        }
    }
    build(description, fileName);
    if (slotValues)
        for (size_t i = 0; i < slots.size(); ++i) {
            float v = slotValues(static_cast<int>(i), slots[i].name);
            if (std::isnan(v)) continue;
            v = v < 0.0f ? 0.0f : v > 1.0f ? 1.0f : v;
            if (v != slots[i].value) setSlot(static_cast<int>(i), v);
        }
    warmUp(fileName);
}

CircuitDocument::~CircuitDocument() {}

void CircuitDocument::build(const std::string& description, const std::string& fileName) {
    {
        pugi::xml_document xml;
        const pugi::xml_parse_result parsed = xml.load_buffer(description.data(), description.size());
        if (!parsed)
            throw DocumentError(DocumentError::Syntax, fileName, lineAt(description, static_cast<size_t>(parsed.offset)),
                                std::string("XML: ") + parsed.description());
        const size_t elements = countElements(xml);
        if (elements > static_cast<size_t>(kMaxElements))
            throw DocumentError(DocumentError::TooLarge, fileName, 0,
                                std::to_string(elements) + " elements, more than the " + std::to_string(kMaxElements) +
                                    " a document may have");
    }
    auto makeChannel = [&] {
        Channel c;
        c.driver.reset(new Driver());
        try {
            c.driver->init(description);
        } catch (...) {
            const std::string message = describeException(std::current_exception());
            throw DocumentError(DocumentError::Build, fileName, lineNamedIn(description, message), message);
        }
        return c;
    };
    drivers.push_back(makeChannel());
    inputs = drivers[0].driver->getNumberOfInputs();
    outputs = drivers[0].driver->getNumberOfOutputs();
    if (outputs < 1) throw DocumentError(DocumentError::Build, fileName, 0, "the document has no outputs");
    if (inputs == 1 && outputs == 1) drivers.push_back(makeChannel());

    const std::vector<ControlPtr>& controls = drivers[0].driver->getControls();
    for (size_t i = 0; i < controls.size(); ++i) {
        Slot s;
        s.name = controls[i]->name;
        s.label = controls[i]->displayName.empty() ? controls[i]->name : controls[i]->displayName;
        const float v = controls[i]->getValue();
        s.low = std::min(0.0f, v);
        s.high = std::max(1.0f, v);
        s.defaultValue = s.value = (v - s.low) / (s.high - s.low);
        for (auto& c : drivers) s.controls.push_back(c.driver->getControls()[i]);
        slots.push_back(std::move(s));
    }

    const int f = built.oversampling;
    const double rate = built.sampleRate * f;
    for (auto& c : drivers) {
        try {
            c.driver->setSampleRate(static_cast<scalar>(rate));
            c.driver->setMaxBlockSize(built.maxBlockSize * f);
        } catch (...) {
            const std::string message = describeException(std::current_exception());
            throw DocumentError(DocumentError::Build, fileName, lineNamedIn(description, message), message);
        }
        c.in.assign(std::max(inputs, 0), nullptr);
        if (f == 1) continue;
        c.upIn.assign(std::max(inputs, 0), BufferList(1, nullptr));
        c.downIn.assign(std::min(outputs, 2), BufferList(1, nullptr));
        // The engine's interpolator and decimator, as the netlist importer writes them around
        // a nonlinear circuit.
        c.context = std::make_shared<DSPContext>();
        const PropertyMapPtr properties = std::make_shared<PropertyMap>(
            PropertyMap{{"RelativeCornerFrequency", "0.485"}, {"Factor", std::to_string(f)}, {"Order", "2"},
                        {"Type", "Butterworth"}, {"Cascade", "4"}});
        for (int k = 0; k < inputs; ++k) {
            c.up.emplace_back(new IirInterpolator());
            c.up.back()->init("up" + std::to_string(k), properties, c.context);
            c.up.back()->sampleRateChanged(static_cast<scalar>(rate));
            c.up.back()->setMaxBlockSize(built.maxBlockSize);
        }
        for (int k = 0; k < std::min(outputs, 2); ++k) {
            c.down.emplace_back(new IirDecimator());
            c.down.back()->init("down" + std::to_string(k), properties, c.context);
            c.down.back()->sampleRateChanged(static_cast<scalar>(rate));
            c.down.back()->setMaxBlockSize(built.maxBlockSize * f);
        }
    }
}

void CircuitDocument::warmUp(const std::string& fileName) {
    // Silence at the host's rate and block size: the first blocks make what the engine makes
    // on its first run (kernels, buffers), so that the audio thread later allocates nothing.
    // A document that starts from its operating point rests there; one that starts from rest
    // stays at rest. The first block is one frame, timed, so that a document far too large
    // is refused before it takes a whole block's time; then a short block, timed against
    // real time; then two full blocks.
    const int block = built.maxBlockSize;
    std::vector<float> silence(block, 0.0f), left(block), right(block);
    DenormalGuard guard;
    struct Restore {
        DenormalGuard& guard;
        ~Restore() { guard.restore(); }
    } restore{guard};
    auto run = [&](int frames) {
        try {
            process(silence.data(), silence.data(), left.data(), right.data(), frames);
        } catch (...) {
            throw DocumentError(DocumentError::Build, fileName, 0,
                                "the document fails to run: " + describeException(std::current_exception()));
        }
    };
    double start = threadSeconds();
    run(1);
    const double first = threadSeconds() - start;
    if (first > kMaxFirstBlockSeconds) {
        char text[96];
        std::snprintf(text, sizeof text, "too slow to run: its first sample took %.1f s", first);
        throw DocumentError(DocumentError::TooSlow, fileName, 0, text);
    }
    const int shortBlock = std::min(block, 64);
    start = threadSeconds();
    run(shortBlock);
    load = (threadSeconds() - start) * built.sampleRate / shortBlock;
    if (load > kMaxLoad) {
        char text[96];
        std::snprintf(text, sizeof text, "too slow to run: it takes %.0f times real time here", load);
        throw DocumentError(DocumentError::TooSlow, fileName, 0, text);
    }
    start = threadSeconds();
    for (int i = 0; i < 2; ++i) run(block);
    load = (threadSeconds() - start) * built.sampleRate / (2.0 * block);
    ran = false;
}

void CircuitDocument::setSlot(int i, float v) {
    if (i < 0 || i >= numberOfControls()) return;
    Slot& s = slots[i];
    if (v == s.value) return;
    s.value = v;
    const float value = s.low + v * (s.high - s.low);
    for (auto& c : s.controls) c->setValue(value);
}

std::string CircuitDocument::controlDisplay(int i, float v) const {
    if (i < 0 || i >= numberOfControls()) return "";
    const Slot& s = slots[i];
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(s.low + v * (s.high - s.low)));
    return text;
}

void CircuitDocument::runChannel(Channel& c, float* const* in, int frames) {
    const int f = built.oversampling;
    if (f == 1) {
        for (int k = 0; k < inputs; ++k) c.in[k] = in[std::min(k, 1)];
        c.driver->process(c.in, static_cast<size_t>(frames));
        return;
    }
    for (int k = 0; k < inputs; ++k) {
        c.upIn[k][0] = in[std::min(k, 1)];
        c.up[k]->process(c.upIn[k], static_cast<size_t>(frames));
        c.in[k] = c.up[k]->getOutput(0);
    }
    const size_t high = static_cast<size_t>(frames) * f;
    c.driver->process(c.in, high);
    const BufferList& results = c.driver->getResults();
    for (size_t j = 0; j < c.down.size(); ++j) {
        c.downIn[j][0] = results[j];
        c.down[j]->process(c.downIn[j], high);
    }
}

const float* CircuitDocument::channelOutput(Channel& c, int output) const {
    return c.down.empty() ? c.driver->getResults()[output] : c.down[output]->getOutput(0);
}

void CircuitDocument::process(float* left, float* right, float* outLeft, float* outRight, int frames) {
    if (frames <= 0) return;
    ran = true;
    if (drivers.size() == 2) {
        float* l[2] = {left, left};
        float* r[2] = {right, right};
        runChannel(drivers[0], l, frames);
        runChannel(drivers[1], r, frames);
        std::memcpy(outLeft, channelOutput(drivers[0], 0), frames * sizeof(float));
        std::memcpy(outRight, channelOutput(drivers[1], 0), frames * sizeof(float));
        return;
    }
    float* in[2] = {left, right};
    runChannel(drivers[0], in, frames);
    std::memcpy(outLeft, channelOutput(drivers[0], 0), frames * sizeof(float));
    std::memcpy(outRight, channelOutput(drivers[0], outputs > 1 ? 1 : 0), frames * sizeof(float));
}

} // namespace kelm
