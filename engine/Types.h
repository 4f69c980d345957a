#pragma once
// Basic numeric and container types shared by the whole engine.
#include <memory>
#include <string>
#include <vector>

namespace kelm {

// The engine's sample and solver number: a 32-bit IEEE float.
typedef float scalar;

typedef std::vector<scalar> ScalarVector;
typedef std::shared_ptr<ScalarVector> ScalarVectorPtr;

// Per-port lists of sample buffers handed between graphs and elements.
typedef std::vector<scalar*> BufferList;

} // namespace kelm
