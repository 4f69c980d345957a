#pragma once
#include "dsp/BasicFilterMeta.h"

namespace kelm {

// Ports of a Mixer: deliberately the same table as BasicFilterMeta.
class MixerMeta : public BasicFilterMeta {};

} // namespace kelm
