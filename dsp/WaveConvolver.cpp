#include "dsp/WaveConvolver.h"

#include <cmath>
#include <sstream>

#include "dsp/AudioFileRead.h"
#include "dsp/DllResourceReader.h"
#include "dsp/FftResampler.h"
#include "dsp/FileReader.h"
#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/Str.h"

namespace kelm {

WaveConvolver::WaveConvolver() : convolver(new Convolver()), impulseResponses(std::make_shared<std::vector<std::string>>()) {}

void WaveConvolver::init(const std::string&, std::shared_ptr<DSPContext>&) {
    throw OperationNotSupportedException("WaveConvolver: init(name, context) is not yet implemented.");
}

void WaveConvolver::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    if (props) properties = *props;
    const PropertyMap& p = properties;
    std::string text;
    p.readRequired("ImpulseResponses", text,
                   KELMException("WaveConvolver: ImpulseResponses is not defined. WaveConvolver name=" + name));
    impulseResponses->clear();
    size_t start = 0;
    while (start <= text.size()) {
        size_t bar = text.find('|', start);
        if (bar == std::string::npos) bar = text.size();
        if (bar > start) impulseResponses->push_back(text.substr(start, bar - start));
        start = bar + 1;
    }
    if (!p.readOptional("Location", text)) throw KELMException("WaveConvolver: Missing Location property.");
    if (text == "Memory")
        location = 0;
    else if (text == "File")
        location = 1;
    else if (text == "Dll")
        location = 2;
    else
        throw InvalidArgumentException("WaveConvolver: Invalid Location property " + text);
    int sel = 0;
    if (p.readOptional("Selected", sel)) selected = static_cast<unsigned>(sel);
    p.readOptional("Scale", scale);
    p.readOptional("Gain", gain);
    if (location == 2 && !p.readOptional("DllResourceType", dllResourceType))
        throw KELMException("WaveConvolver: Missing DllResourceType property.");
    convolver->init(name, props, ctx);
}

void WaveConvolver::setMemoryResponse(const std::string& name, int rate, const ScalarVectorPtr& samples) {
    memoryRates[name] = rate;
    memorySamples[name] = samples;
}

void WaveConvolver::propertyChanged(const std::string& name, scalar value) {
    if (name != "Selected") return;
    const long v = std::lround(value);
    if (v < 0 || static_cast<size_t>(v) > impulseResponses->size())
        throw KELMException(str("WaveConvolver: Invalid selection: ", v, " max selection value ", impulseResponses->size()));
    selected = static_cast<unsigned>(v);
    update();
}

void WaveConvolver::sampleRateChanged(scalar rate) {
    if (rate == sampleRate) return;
    sampleRate = rate;
    update();
}

ScalarVector WaveConvolver::resample(const scalar* samples, size_t n, double s, double d) {
    // A wave file may state any rate: a response that would come out longer than 2^22 samples
    // (87 s at 48 kHz, far beyond any room) or from a rate below 1 kHz (no audio file has one;
    // a few samples at 1 Hz would ask for a transform of millions) is refused rather than
    // allocated; the resampler's spectra take some 30 bytes per output sample.
    const double frames = (d / s) * n + 0.5;
    if (!(s >= 1000 && d >= 1 && frames < static_cast<double>(1 << 22)))
        throw KELMException(str("WaveConvolver: cannot resample ", n, " samples from ", s, " Hz to ", d, " Hz"));
    const size_t length = static_cast<size_t>(frames);
    FftResampler resampler(s, d);
    double block[128];
    for (size_t at = 0; at < n; at += 128) {
        for (size_t i = 0; i < 128; ++i) block[i] = at + i < n ? samples[at + i] : 0.0;
        resampler.feed(block, 128);
    }
    std::vector<double> y = resampler.finish(length);
    ScalarVector out(length);
    for (size_t i = 0; i < length; ++i) out[i] = static_cast<scalar>(y[i] * (s / d));
    return out;
}

ScalarVector WaveConvolver::decode(const char* bytes, size_t size, float& rate) {
    std::istringstream stream(std::string(bytes, size));
    stk::AudioFileRead wave(stream);
    wave.getWavInfo();
    rate = wave.getFileRate();
    stk::StkFrames frames(wave.getSize(), wave.channelsOut());
    if (frames.size() == 0) return ScalarVector();
    wave.read(frames);
    ScalarVector first(frames.frames());
    for (size_t i = 0; i < first.size(); ++i) first[i] = frames(i, 0);
    return first;
}

void WaveConvolver::update() {
    if (selected >= impulseResponses->size())
        throw KELMException(str("WaveConvolver: Invalid selection: ", selected, " max selection value ",
                                impulseResponses->size()));
    const std::string& name = (*impulseResponses)[selected];
    ScalarVector samples;
    if (location == 0) {
        auto it = memorySamples.find(name);
        if (it == memorySamples.end()) throw KELMException("WaveConvolver: No response in memory with name " + name);
        const int rate = memoryRates[name];
        samples = rate != sampleRate ? resample(it->second->data(), it->second->size(), rate, sampleRate) : *it->second;
    } else if (location == 1 || location == 2) {
        float rate = 0;
        if (location == 1) {
            FileReader reader(name);
            samples = decode(reader.data(), reader.size(), rate);
        } else {
            DllResourceReader reader(dllResourceType + "|" + name);
            samples = decode(reader.data(), reader.size(), rate);
        }
        if (rate != sampleRate) samples = resample(samples.data(), samples.size(), rate, sampleRate);
    } else {
        throw KELMException(str("WaveConvolver: Unknown Location type: ", location));
    }
    while (!samples.empty() && !(std::fabs(samples.back()) > 1e-15f)) samples.pop_back();
    if (samples.size() > static_cast<size_t>(convolver->getMaxIRSize())) samples.resize(convolver->getMaxIRSize());
    if (scale && !samples.empty()) {
        double mean = 0;
        for (scalar v : samples) mean += v;
        mean /= samples.size();
        if (mean != 0)
            for (scalar& v : samples) v = static_cast<scalar>(v - mean);
    }
    for (scalar& v : samples) v *= gain;
    convolver->propertyChanged("ImpulseResponse", std::make_shared<ScalarVector>(samples));
    convolver->reset();
}

scalar WaveConvolver::process(scalar) { throw OperationNotSupportedException(""); }
scalar* WaveConvolver::process(scalar*, size_t) { throw OperationNotSupportedException(""); }
void WaveConvolver::process(const scalar*, scalar*, size_t) { throw OperationNotSupportedException(""); }
ScalarVector& WaveConvolver::iterate(const ScalarVectorPtr&, int, int) {
    throw OperationNotSupportedException("WaveConvolver: Iteration is not supported.");
}
ScalarVector& WaveConvolver::getLastIterationResults() {
    throw OperationNotSupportedException("WaveConvolver: getLastIterationResults is not supported.");
}
void WaveConvolver::endIteration(int) {
    throw OperationNotSupportedException("WaveConvolver: endIteration is not supported.");
}

} // namespace kelm
