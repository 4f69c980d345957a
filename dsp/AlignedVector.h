#pragma once
#include <vector>

#include <Eigen/Core>

namespace kelm {

// A vector of floats whose storage is 16-byte aligned (Eigen's allocator).
typedef std::vector<float, Eigen::aligned_allocator<float>> AlignedFloats;

} // namespace kelm
