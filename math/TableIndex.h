#pragma once

namespace kelm {

// Truncates v toward zero to an int, saturated to [lo, hi] so that no input
// (huge, infinite or NaN, which gives lo) can index outside a table.
inline int tableIndex(float v, int lo, int hi) {
    if (!(v > static_cast<float>(lo))) return lo;
    if (!(v < static_cast<float>(hi))) return hi;
    return static_cast<int>(v);
}

} // namespace kelm
