#include "dsp/DspTypes.h"

#include <pugixml.hpp>

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
#include "dsp/DSPGraphParser.h"
#include "engine/GraphTypes.h"

namespace kelm {

namespace {
template <typename T>
Filter* make() {
    return new T();
}
} // namespace

TypeRegistry<FilterMaker>& filterTypes() {
    static TypeRegistry<FilterMaker> types;
    return types;
}

void registerDspTypes() {
    TypeRegistry<FilterMaker>& types = filterTypes();
    types.add("Gain", make<Gain>);
    types.add("Mixer", make<Mixer>);
    types.add("DifferentialFilter", make<DifferentialFilter>);
    types.add("Relaxation", make<Relaxation>);
    types.add("Switch", make<Switch>);
    types.add("BiQuad", make<BiQuad>);
    types.add("ThirdOrderIIR", make<ThirdOrderIIR>);
    types.add("FirstOrderIIR", make<FirstOrderIIR>);
    types.add("LookupTableFilter", make<LookupTableFilter>);
    types.add("Iir", make<Iir>);
    types.add("IirInterpolator", make<IirInterpolator>);
    types.add("IirDecimator", make<IirDecimator>);
    types.add("Fir", make<Fir>);
    types.add("PolyphaseDownsampler", make<PolyphaseDownsampler>);
    types.add("PolyphaseUpsampler", make<PolyphaseUpsampler>);
    types.add("ResamplingUpsampler", make<ResamplingUpsampler>);
    types.add("ResamplingDecimator", make<ResamplingDecimator>);
    types.add("Convolver", make<Convolver>);
    types.add("WaveConvolver", make<WaveConvolver>);
    graphTypes().add("DSP", [](const pugi::xml_node& node, const std::string& name) {
        return DSPGraphParser().parse(node, name);
    });
}

} // namespace kelm
