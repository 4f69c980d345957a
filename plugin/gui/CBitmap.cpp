#include "plugin/gui/CBitmap.h"

#include <climits>
#include <cstring>

#include "dsp/ResourceRegistry.h"
#include "engine/KELMException.h"

// The PNG decoder is compiled into this file alone, with internal linkage.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#define STBI_FAILURE_USERMSG
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#endif
#include <stb_image.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace kelm {

std::shared_ptr<CBitmap> CBitmap::load(const std::string& name) {
    ResourceRegistry::Resource r = ResourceRegistry::find("PNG", name);
    if (!r.data) throw KELMException("Bitmap resource not found: " + name);
    return decode(r.data, r.size, name);
}

std::shared_ptr<CBitmap> CBitmap::decode(const unsigned char* data, size_t size, const std::string& name) {
    if (!data || size == 0 || size > static_cast<size_t>(INT_MAX)) throw KELMException("Bitmap is not a PNG image: " + name);
    int w = 0, h = 0, channels = 0;
    unsigned char* rgba = stbi_load_from_memory(data, static_cast<int>(size), &w, &h, &channels, 4);
    if (!rgba) throw KELMException("Bitmap is not a PNG image: " + name);
    PixelBuffer pixels(w, h);
    std::memcpy(pixels.data(), rgba, static_cast<size_t>(w) * h * 4);
    stbi_image_free(rgba);
    return std::make_shared<CBitmap>(std::move(pixels));
}

} // namespace kelm
