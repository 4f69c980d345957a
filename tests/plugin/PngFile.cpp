#include "tests/plugin/PngFile.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb/stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace kelm {
namespace test {

bool writePng(const std::string& path, const PixelBuffer& image) {
    return stbi_write_png(path.c_str(), image.width(), image.height(), 4, image.data(), image.width() * 4) != 0;
}

} // namespace test
} // namespace kelm
