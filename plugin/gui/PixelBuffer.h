#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "plugin/gui/CRect.h"

namespace kelm {

// An image in memory: width x height pixels, 4 bytes each in the order red,
// green, blue, alpha (alpha not premultiplied), rows from the top.
class PixelBuffer {
public:
    PixelBuffer() {}
    PixelBuffer(int width, int height);

    int width() const { return w; }
    int height() const { return h; }
    const uint8_t* data() const { return pixels.data(); }
    uint8_t* data() { return pixels.data(); }
    const uint8_t* pixel(int x, int y) const { return &pixels[(static_cast<size_t>(y) * w + x) * 4]; }
    // The pixel as 0xRRGGBBAA.
    uint32_t rgba(int x, int y) const;

    // Copies the area `from` of src to (x, y), replacing what is there.
    void copy(const PixelBuffer& src, const CRect& from, int x, int y);
    // Draws the area `from` of src over this buffer at (x, y), mixing by the source's alpha.
    void blend(const PixelBuffer& src, const CRect& from, int x, int y);
    // Fills the area (clipped to the buffer) with one colour, 0xRRGGBB, opaque.
    void fill(const CRect& area, uint32_t rgb);
    // Draws the colour 0xRRGGBB through the alpha of the area `from` of mask at (x, y), with
    // only the part inside `clip` touched (a glyph of a font, a shape).
    void tint(const PixelBuffer& mask, const CRect& from, int x, int y, uint32_t rgb, const CRect& clip);

private:
    // Clips the transfer to both buffers; false when nothing is left.
    bool clip(const PixelBuffer& src, CRect& from, int& x, int& y) const;

    int w = 0, h = 0;
    std::vector<uint8_t> pixels;
};

} // namespace kelm
