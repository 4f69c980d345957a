#include "plugin/core/KelmEffect.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "circuit/devices/LookupTableAmp.h"
#include "dsp/FirstOrderIIR.h"
#include "dsp/Filter.h"
#include "dsp/LookupTableFilter.h"
#include "engine/Context.h"
#include "engine/Element.h"
#include "plugin/core/VolCtrlPropertiesHandler.h"
#include "plugin/core/BuiltInData.h"
#include "plugin/core/DenormalGuard.h"
#include "solvers/EngineTypes.h"

namespace kelm {

namespace {

ScalarVectorPtr vectorOf(const BuiltInTable& t) { return std::make_shared<ScalarVector>(t.data, t.data + t.size); }

PropertyMapPtr rangeOf(const BuiltInTable& t) {
    return std::make_shared<PropertyMap>(PropertyMap{{"VinMin", t.vinMin}, {"VinMax", t.vinMax}, {"DeltaV", t.deltaV}});
}

// The element in both instances of its graph, the one that plays and its spare.
std::vector<Element*> instancesOf(Driver& driver, const char* graph, const char* element) {
    std::vector<Element*> found;
    for (Graph* g : driver.getGraphInstances(graph))
        if (g) found.push_back(g->getContext()->getElement(element));
    return found;
}

void setPole(FirstOrderIIR& f, scalar a1) {
    const scalar b[2] = {f.coefficientB(0), f.coefficientB(1)};
    f.setCoefficients(&a1, b);
}

} // namespace

KelmEffect::KelmEffect() : KelmEffect(BuiltInData::document()) {}

KelmEffect::KelmEffect(const std::string& document) {
    registerEngineTypes();
    driver = std::make_shared<Driver>();
    driver->init(document);
    // Switches moved while playing crossfade, knobs glide (see the README, "In hosts").
    driver->setSmoothChanges(true);
    controls = driver->getControls();
    inputs.assign(2, nullptr);
    attachHandlers();
    deliverTables();
    installTransforms();
}

KelmEffect::~KelmEffect() {}

void KelmEffect::attachHandlers() {
    const BuiltInTable grid = BuiltInData::gridResistance();
    auto admittance = std::make_shared<ScalarVector>(grid.size);
    for (int i = 0; i < grid.size; ++i) (*admittance)[i] = 1.0f / grid.data[i];
    const BuiltInTable plate = BuiltInData::plateResistance();
    const ScalarVectorPtr resistance = vectorOf(plate);
    const char* targets[2][2] = {{"V2-DSP", "VC"}, {"V2-DSPS", "VCS"}};
    for (auto& t : targets) {
        for (Element* e : instancesOf(*driver, t[0], t[1])) {
            Filter* vc = dynamic_cast<Filter*>(e);
            auto handler = std::make_shared<VolCtrlPropertiesHandler>(vc);
            handler->yg().propertiesChanged(rangeOf(grid));
            handler->yg().propertyChanged("Vout", admittance);
            handler->rp().propertiesChanged(rangeOf(plate));
            handler->rp().propertyChanged("Vout", resistance);
            vc->setPropertiesHandler(handler);
        }
    }
}

void KelmEffect::deliverTables() {
    const BuiltInTable first = BuiltInData::firstStageCurve();
    const ScalarVectorPtr firstCurve = vectorOf(first);
    const ScalarVectorPtr secondCurve = vectorOf(BuiltInData::secondStageCurve());
    const ScalarVectorPtr gridCurrent = vectorOf(BuiltInData::secondStageGridCurrent());
    const ScalarVectorPtr sourceAdmittance = vectorOf(BuiltInData::firstStageAdmittance());
    for (const char* g : {"V1", "V1S"}) {
        for (Element* v1 : instancesOf(*driver, g, "V1")) {
            v1->propertyChanged("Vout", firstCurve);
            v1->propertiesChanged(rangeOf(first));
        }
    }
    for (const char* g : {"Triodes", "TriodesS"}) {
        for (Element* v2 : instancesOf(*driver, g, "V2")) {
            v2->propertyChanged("Vout", secondCurve);
            v2->propertyChanged("Iin", gridCurrent);
        }
        for (Element* rp : instancesOf(*driver, g, "Rp")) rp->propertyChanged("out", sourceAdmittance);
    }
    for (const char* g : {"V2-DSP", "V2-DSPS"})
        for (Element* v2 : instancesOf(*driver, g, "V2")) v2->propertyChanged("Vout", secondCurve);
}

void KelmEffect::installTransforms() {
    auto install = [&](const char* name, int from, int to, const Control::ScalarTransform& f) {
        const int index = parameterIndex(name);
        if (index < 0) return;
        const auto& props = *controls[index]->getProperties();
        for (int i = from; i <= to && i < static_cast<int>(props.size()); ++i) controls[index]->setTransform(props[i], f);
    };
    install("Vol", 0, 1, [](scalar x) { return 0.02f * x; });
    install("Gain", 0, 3, [](scalar x) { return x < 0.5f ? 0.2f * x : (x - 0.5f) * 1.8f + 0.1f; });
    install("Oversampling", 0, 3, [](scalar x) { return static_cast<scalar>(std::pow(2.0, 2.0 * x)); });
    install("CPU", 2, 2, [](scalar x) { return 1.0f - x; });
    install("CPU", 5, 5, [](scalar x) { return 1.0f - x; });
    install("Input", 0, 1, [](scalar x) { return 2.0f * x; });
    install("EQ_Position", 4, 7, [](scalar x) { return 1.0f - x; });
}

void KelmEffect::setParameter(int index, float value) {
    if (index < 0 || index >= numberOfParameters()) return;
    // Any value a host may send is made one the system can run with: NaN and values outside
    // 0 to 1 are clamped, and the oversampling factor takes one of its three positions (a
    // factor between them would leave the resamplers and the graph rates disagreeing).
    if (!(value >= 0.0f)) value = 0.0f;
    if (value > 1.0f) value = 1.0f;
    if (controls[index]->name == "Oversampling") value = value < 0.25f ? 0.0f : value < 0.75f ? 0.5f : 1.0f;
    controls[index]->setValue(value);
}

bool KelmEffect::isMono() const {
    const int stereo = parameterIndex("Stereo");
    return stereo >= 0 && getParameter(stereo) >= 0.5f;
}

float KelmEffect::getParameter(int index) const {
    if (index < 0 || index >= numberOfParameters()) return 0.0f;
    return controls[index]->getValue();
}

std::string KelmEffect::parameterName(int index) const {
    if (index < 0 || index >= numberOfParameters()) return "";
    return controls[index]->displayName;
}

int KelmEffect::parameterIndex(const std::string& name) const {
    for (size_t i = 0; i < controls.size(); ++i)
        if (controls[i]->name == name) return static_cast<int>(i);
    return -1;
}

std::string KelmEffect::parameterText(int index, float x) const {
    if (index < 0 || index >= numberOfParameters()) return "";
    const std::string& name = controls[index]->name;
    char text[32];
    auto decibels = [&](double gain) {
        if (gain <= 0) return std::string("-inf");
        std::snprintf(text, sizeof text, "%+.1f", 20 * std::log10(gain));
        return std::string(text);
    };
    if (name == "Input" || name == "Vol") return decibels(2.0 * x);  // relative to the middle position
    if (name == "Oversampling") {
        std::snprintf(text, sizeof text, "%dx", static_cast<int>(std::floor(std::pow(2.0, 2.0 * x) + 0.5)));
        return text;
    }
    if (name == "EQ_Position") return x > 0.5f ? "Pre" : "Post";
    if (name == "Stereo") return x >= 0.5f ? "Mono" : "Stereo";
    if (name == "CPU") return x >= 0.5f ? "Table" : "Circuit";
    if (name == "Bass" || name == "Treble") {
        std::snprintf(text, sizeof text, "%+.1f", (x - 0.5) * 20.0);
        return text;
    }
    std::snprintf(text, sizeof text, "%.1f", x * 10.0);
    return text;
}

bool KelmEffect::parameterFromText(int index, const std::string& text, float& value) const {
    if (index < 0 || index >= numberOfParameters()) return false;
    const std::string& name = controls[index]->name;
    const char* start = text.c_str();
    char* end = nullptr;
    const double number = std::strtod(start, &end);
    if (end != start && std::isfinite(number) && parameterPositions(index) == 0) {
        double x = number / 10.0;
        if (name == "Input" || name == "Vol") x = 0.5 * std::pow(10.0, number / 20.0);
        if (name == "Bass" || name == "Treble") x = number / 20.0 + 0.5;
        const float candidate = static_cast<float>(std::min(1.0, std::max(0.0, x)));
        const std::string shown = parameterText(index, candidate);
        if (text.compare(0, shown.size(), shown) == 0) {
            value = candidate;
            return true;
        }
    }
    return EffectCore::parameterFromText(index, text, value);
}

std::string KelmEffect::parameterLabel(int index) const {
    if (index < 0 || index >= numberOfParameters()) return "";
    const std::string& name = controls[index]->name;
    return (name == "Input" || name == "Vol") ? "dB" : "";
}

int KelmEffect::parameterPositions(int index) const {
    if (index < 0 || index >= numberOfParameters()) return 0;
    const std::string& name = controls[index]->name;
    if (name == "Oversampling") return 3;
    if (name == "EQ_Position" || name == "Stereo" || name == "CPU") return 2;
    return 0;
}

void KelmEffect::setSampleRate(float rate) {
    driver->setSampleRate(rate);
    resumed.store(true);
}

void KelmEffect::setBlockSize(int frames) {
    driver->setMaxBlockSize(frames);
    for (auto& c : clean) c.assign(frames, 0.0f);
}

void KelmEffect::suspend() { driver->suspend(true); }

void KelmEffect::resume() {
    driver->suspend(false);
    DenormalGuard guard;  // the silence decays through the filters as it does in a block
    struct Restore {
        DenormalGuard& guard;
        ~Restore() { guard.restore(); }
    } restore{guard};
    if (driver->getSampleRate() < 0) driver->setSampleRate(48000.0f);
    if (driver->getMaxBlockSize() < 0) setBlockSize(480);
    const int block = driver->getMaxBlockSize();
    for (auto& c : clean)
        if (static_cast<int>(c.size()) < block) c.assign(block, 0.0f);
    std::vector<scalar> silence(block, 0.0f);
    inputs[0] = inputs[1] = silence.data();
    // While warming up, every graph runs in both of its instances, whether a switch has it off
    // or bypassed or not, and changes take effect at once: whatever a switch brings in later
    // (the circuit path, the tone stack in its other place, the right channel) has settled on
    // the same silence.
    driver->setWarming(true);
    struct EndWarming {
        Driver& driver;
        bool done = false;
        ~EndWarming() {  // when the warm-up ends in an exception
            if (done) return;
            try {
                driver.setWarming(false);
            } catch (...) {
            }
        }
    } endWarming{*driver};
    // The oversampling switch through its positions once, a few samples each: the resamplers'
    // designs for each factor and the buffers at each rate, the crossfades' among them, then
    // exist before audio runs, and a host that moves the switch later allocates nothing on
    // its audio thread (the other switches only bypass graphs, and every graph runs now). The
    // warm-up below settles what this stirs. A value the host sets meanwhile is left alone.
    if (const int os = parameterIndex("Oversampling"); os >= 0) {
        const float saved = getParameter(os);
        float last = saved;
        for (float position : {1.0f, 0.5f, 0.0f}) {
            setParameter(os, last = position);
            driver->process(inputs, std::min(block, 32));
        }
        if (getParameter(os) == last) setParameter(os, saved);
    }
    const double rate = driver->getSampleRate();
    const int minimum = static_cast<int>(1.0 - std::trunc(rate * -0.2 / block));  // 0.2 s and one block
    const int maximum = minimum + static_cast<int>(std::ceil(rate * 0.8 / block));  // up to 0.8 s more
    // The DC blockers' pole (0.9995, 2000 samples per neper) is far slower than the warm-up: the
    // tubes' bias would still be draining out of them after it, a thump on every start. While
    // the silence runs they follow with a 1 ms time constant instead. A first-order high-pass
    // fed a constant rests at x[n-1] = input, y[n-1] = 0 whatever its pole, so putting the pole
    // back afterwards leaves it at rest and changes nothing in the steady state.
    struct FastBlockers {
        std::vector<std::pair<FirstOrderIIR*, scalar>> saved;
        ~FastBlockers() {
            for (auto& b : saved) setPole(*b.first, b.second);
        }
    } blockers;
    for (const char* graph : {"DC block", "DC blockS"}) {
        for (Element* e : instancesOf(*driver, graph, "DC block")) {
            auto* blocker = dynamic_cast<FirstOrderIIR*>(e);
            if (blocker) blockers.saved.emplace_back(blocker, blocker->coefficientA(0));
        }
    }
    const scalar fast = static_cast<scalar>(-std::exp(-1.0 / (0.001 * rate)));
    for (auto& b : blockers.saved) setPole(*b.first, fast);
    // After the first 0.2 s the silence goes on, in windows of at least 10 ms, for as long as
    // the mean of the left blocker's output (the bias still draining from the stages' coupling
    // capacitors) falls by a tenth from one window to the next, up to 0.8 s more. The mean, not
    // the peak: where the circuit's solver leaves a noise floor of its own, the drift under it
    // still shows, and once only the noise is left the mean stops falling and the warm-up ends.
    for (int i = 0; i < minimum; ++i) driver->process(inputs, block);
    if (!blockers.saved.empty()) {
        const scalar* settled = blockers.saved[0].first->getOutput(0);
        const int window = std::max(1, static_cast<int>(std::ceil(rate * 0.01 / block)));
        auto windowDrift = [&] {
            double sum = 0.0;
            for (int i = 0; i < window; ++i) {
                driver->process(inputs, block);
                for (int k = 0; k < block; ++k) sum += settled[k];
            }
            return std::fabs(sum) / (static_cast<double>(window) * block);
        };
        double previous = windowDrift();
        for (int extra = window; extra < maximum - minimum; extra += window) {
            const double drift = windowDrift();
            if (!(drift < 0.9 * previous) || drift < 1e-12) break;
            previous = drift;
        }
    }
    endWarming.done = true;
    driver->setWarming(false);
    resumed.store(true);
    inputs[0] = inputs[1] = nullptr;
}

void KelmEffect::process(float** in, float** out, int frames, bool secondInputConnected) {
    if (frames <= 0) return;
    const bool outputPair = out[1] && out[1] != out[0];
    auto silence = [&] {
        std::fill(out[0], out[0] + frames, 0.0f);
        if (outputPair) std::fill(out[1], out[1] + frames, 0.0f);
    };
    // A host that processes before it has given a sample rate and a block size gets silence.
    if (driver->getSampleRate() <= 0 || driver->getMaxBlockSize() < 1 || clean[0].empty()) {
        silence();
        return;
    }
    DenormalGuard guard;
    try {
        const bool second = in[1] && in[1] != in[0] && secondInputConnected;
        // A block larger than the announced size runs as consecutive chunks of at most that
        // size: the same samples as if the host had sent the chunks.
        const int chunk = std::min(driver->getMaxBlockSize(), static_cast<int>(clean[0].size()));
        for (int offset = 0; offset < frames; offset += chunk) {
            const int n = std::min(chunk, frames - offset);
            inputs[0] = sanitise(in[0] + offset, clean[0].data(), n);
            inputs[1] = second ? sanitise(in[1] + offset, clean[1].data(), n) : inputs[0];
            driver->process(inputs, n);
            resumed.store(false);
            const BufferList& results = driver->getResults();
            std::memmove(out[0] + offset, results[0], n * sizeof(float));
            if (outputPair) std::memmove(out[1] + offset, results[1], n * sizeof(float));
        }
    } catch (const KELMException&) {
        // The chunks before the one that failed are not heard either: the whole block is
        // silence, and the exception passes to the caller as it is.
        guard.restore();
        silence();
        throw;
    } catch (...) {
        guard.restore();
        silence();
        return;
    }
    guard.restore();
}

scalar* KelmEffect::sanitise(const float* in, scalar* clean, int n) {
    // NaN becomes silence and everything else is held within +-kInputLimit, infinities included:
    // a circuit fed either would carry it in its state for good. Written branch-free so that it
    // vectorises; the comparisons are false for NaN.
    for (int i = 0; i < n; ++i) {
        const float x = in[i];
        const float held = x > kInputLimit ? kInputLimit : (x < -kInputLimit ? -kInputLimit : x);
        clean[i] = held == held ? held : 0.0f;
    }
    return clean;
}

} // namespace kelm
