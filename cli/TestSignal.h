#pragma once
#include <vector>

namespace kelm {
namespace cli {

// A few seconds of plucked-string arpeggios (Karplus-Strong), mono, peak 0.5.
std::vector<float> musicalTestSignal(double seconds, int sampleRate);

} // namespace cli
} // namespace kelm
