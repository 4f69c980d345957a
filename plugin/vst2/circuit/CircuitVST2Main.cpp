// Kelm Circuit's effect for the VST 2 entry points.
#include "plugin/vst2/circuit/CircuitVST2Effect.h"
#include "plugin/vst2/entry/VST2Entry.h"

namespace kelm {
namespace vst2 {

AEffect* createPluginEffect(AudioMasterCallback audioMaster) {
    return (new CircuitVST2Effect(audioMaster, std::unique_ptr<CircuitEffect>(new CircuitEffect())))->getAeffect();
}

} // namespace vst2
} // namespace kelm
