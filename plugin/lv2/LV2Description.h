#pragma once
#include <memory>

#include "plugin/core/EffectCore.h"

namespace kelm {

// What tells one Kelm LV2 plug-in from another to the shared entry (plugin/lv2/LV2Entry.cpp):
// its URI, its core, its state and how its ports' first values count.
struct LV2Description {
    const char* uri;  // the plug-in's URI, which hosts keep sessions by
    // A new core for an instance; may throw.
    std::unique_ptr<EffectCore> (*makeCore)();
    // The key the core's state is kept under in the host's session (one string), or null for a
    // plug-in without a state interface, whose host keeps the ports' values only.
    const char* stateKey;
    // The leading parameters whose port's first value is not passed on (see LV2Effect).
    int unheardFirstValues;
};

// The plug-in's description: each LV2 plug-in binary defines it once, beside LV2Entry.cpp,
// which exports the plug-in.
const LV2Description& lv2Description();

} // namespace kelm
