// Kelm Circuit's LV2 plug-in for the shared entry: its core, the document and the parameters
// as its state (the same bytes as a VST 2 chunk), and the slots' ports heard only once they
// move, since their defaults in the description know nothing of the document.
#include "plugin/core/CircuitEffect.h"
#include "plugin/lv2/KelmLV2Uri.h"
#include "plugin/lv2/LV2Description.h"

namespace kelm {

const LV2Description& lv2Description() {
    static const LV2Description description = {
        kKelmCircuitLV2Uri, [] { return std::unique_ptr<EffectCore>(new CircuitEffect()); }, kKelmCircuitStateUri,
        CircuitEffect::kSlots};
    return description;
}

} // namespace kelm
