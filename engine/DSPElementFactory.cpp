#include "engine/DSPElementFactory.h"

#include <algorithm>

#include "dsp/BiQuad.h"
#include "dsp/Convolver.h"
#include "dsp/Fir.h"
#include "dsp/PolyphaseDownsampler.h"
#include "dsp/PolyphaseUpsampler.h"
#include "dsp/ResamplingDecimator.h"
#include "dsp/ResamplingUpsampler.h"
#include "dsp/WaveConvolver.h"
#include "dsp/DifferentialFilter.h"
#include "dsp/FirstOrderIIR.h"
#include "dsp/Iir.h"
#include "dsp/IirDecimator.h"
#include "dsp/IirInterpolator.h"
#include "dsp/LookupTableFilter.h"
#include "dsp/ThirdOrderIIR.h"
#include "dsp/Gain.h"
#include "dsp/Mixer.h"
#include "dsp/Relaxation.h"
#include "dsp/Switch.h"
#include "engine/KELMException.h"

namespace kelm {

namespace {
template <typename T>
Filter* make() {
    return new T();
}
} // namespace

const std::unordered_map<std::string, DSPElementFactory::Maker>& DSPElementFactory::table() {
    static const std::unordered_map<std::string, Maker> types = {
        {"Gain", make<Gain>},
        {"Mixer", make<Mixer>},
        {"DifferentialFilter", make<DifferentialFilter>},
        {"Relaxation", make<Relaxation>},
        {"Switch", make<Switch>},
        {"BiQuad", make<BiQuad>},
        {"ThirdOrderIIR", make<ThirdOrderIIR>},
        {"FirstOrderIIR", make<FirstOrderIIR>},
        {"LookupTableFilter", make<LookupTableFilter>},
        {"Iir", make<Iir>},
        {"IirInterpolator", make<IirInterpolator>},
        {"IirDecimator", make<IirDecimator>},
        {"Fir", make<Fir>},
        {"PolyphaseDownsampler", make<PolyphaseDownsampler>},
        {"PolyphaseUpsampler", make<PolyphaseUpsampler>},
        {"ResamplingUpsampler", make<ResamplingUpsampler>},
        {"ResamplingDecimator", make<ResamplingDecimator>},
        {"Convolver", make<Convolver>},
        {"WaveConvolver", make<WaveConvolver>},
    };
    return types;
}

Filter* DSPElementFactory::create(const std::string& typeName) {
    auto it = table().find(typeName);
    if (it == table().end()) throw KELMException("Unknown element type: " + typeName);
    return it->second();
}

bool DSPElementFactory::hasType(const std::string& typeName) { return table().count(typeName) != 0; }

std::vector<std::string> DSPElementFactory::typeNames() {
    std::vector<std::string> names;
    for (auto& entry : table()) names.push_back(entry.first);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace kelm
