#pragma once
#include "plugin/vst2/aeffect.h"

namespace kelm {
namespace vst2 {

// The plug-in's effect for a host: each VST 2 plug-in defines it once, beside
// plugin/vst2/entry/VST2Entry.cpp, which exports it. May throw.
AEffect* createPluginEffect(AudioMasterCallback audioMaster);

} // namespace vst2
} // namespace kelm
