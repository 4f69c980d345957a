#pragma once
#include <memory>
#include <string>

#include "plugin/gui/PixelBuffer.h"

namespace kelm {

// An image decoded from a PNG resource (type "PNG"), shared by every view that shows it.
class CBitmap {
public:
    explicit CBitmap(PixelBuffer pixels) : image(std::move(pixels)) {}

    // Decodes the resource `name`; a KELMException names a missing or undecodable one.
    static std::shared_ptr<CBitmap> load(const std::string& name);
    // Decodes PNG bytes held in memory; a KELMException when they are no image.
    static std::shared_ptr<CBitmap> decode(const unsigned char* data, size_t size, const std::string& name);

    int getWidth() const { return image.width(); }
    int getHeight() const { return image.height(); }
    const PixelBuffer& pixels() const { return image; }

private:
    PixelBuffer image;
};

typedef std::shared_ptr<CBitmap> CBitmapPtr;

} // namespace kelm
