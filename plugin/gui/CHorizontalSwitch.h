#pragma once
#include "plugin/gui/CMultiFrameSwitch.h"

namespace kelm {

// A sideways selector (the frames show the lever at each position).
class CHorizontalSwitch : public CMultiFrameSwitch {
public:
    using CMultiFrameSwitch::CMultiFrameSwitch;
};

} // namespace kelm
