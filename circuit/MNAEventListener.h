#pragma once
#include "circuit/AnalysisType.h"
#include "engine/Types.h"

namespace kelm {

// How a component with memory learns of the sample rate (hertz), of the next
// sample and of a change of analysis.
class MNAEventListener {
public:
    virtual ~MNAEventListener() {}
    virtual void sampleRateChanged(scalar rate) = 0;
    virtual void nextSample() {}
    virtual void analysisChanged(AnalysisType, AnalysisType) {}
};

} // namespace kelm
