// Kelm Preamp's LV2 plug-in for the shared entry: the preamp's core, every port's value
// passed on, no state interface (the host keeps the ports' values).
#include "plugin/core/KelmEffect.h"
#include "plugin/lv2/KelmLV2Uri.h"
#include "plugin/lv2/LV2Description.h"

namespace kelm {

const LV2Description& lv2Description() {
    static const LV2Description description = {
        kKelmLV2Uri, [] { return std::unique_ptr<EffectCore>(new KelmEffect()); }, nullptr, 0};
    return description;
}

} // namespace kelm
