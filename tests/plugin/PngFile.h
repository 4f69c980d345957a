#pragma once
#include <string>

#include "plugin/gui/PixelBuffer.h"

namespace kelm {
namespace test {

// Writes the buffer as an RGBA PNG file; false on failure.
bool writePng(const std::string& path, const PixelBuffer& image);

} // namespace test
} // namespace kelm
