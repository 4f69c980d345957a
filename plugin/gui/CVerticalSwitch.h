#pragma once
#include "plugin/gui/CMultiFrameSwitch.h"

namespace kelm {

// An up-and-down toggle or selector (the frames show the lever at each position).
class CVerticalSwitch : public CMultiFrameSwitch {
public:
    using CMultiFrameSwitch::CMultiFrameSwitch;
};

} // namespace kelm
