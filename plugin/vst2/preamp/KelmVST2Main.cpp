// Kelm Preamp's effect for the VST 2 entry points.
#include "plugin/vst2/entry/VST2Entry.h"
#include "plugin/vst2/preamp/KelmVST2Effect.h"

namespace kelm {
namespace vst2 {

AEffect* createPluginEffect(AudioMasterCallback audioMaster) {
    return (new KelmVST2Effect(audioMaster, std::unique_ptr<KelmEffect>(new KelmEffect())))->getAeffect();
}

} // namespace vst2
} // namespace kelm
