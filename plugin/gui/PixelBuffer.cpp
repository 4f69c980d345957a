#include "plugin/gui/PixelBuffer.h"

#include <cstring>

namespace kelm {

PixelBuffer::PixelBuffer(int width, int height)
    : w(width > 0 ? width : 0), h(height > 0 ? height : 0), pixels(static_cast<size_t>(w) * h * 4, 0) {}

uint32_t PixelBuffer::rgba(int x, int y) const {
    const uint8_t* p = pixel(x, y);
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

bool PixelBuffer::clip(const PixelBuffer& src, CRect& from, int& x, int& y) const {
    from = from.intersected(CRect(0, 0, src.w, src.h));
    if (from.isEmpty()) return false;
    // Shift the source area by the part of the destination that falls outside.
    if (x < 0) { from.left -= x; x = 0; }
    if (y < 0) { from.top -= y; y = 0; }
    if (x + from.width() > w) from.right = from.left + (w - x);
    if (y + from.height() > h) from.bottom = from.top + (h - y);
    return !from.isEmpty();
}

void PixelBuffer::copy(const PixelBuffer& src, const CRect& area, int x, int y) {
    CRect from = area;
    if (!clip(src, from, x, y)) return;
    for (int row = 0; row < from.height(); ++row)
        std::memcpy(&pixels[(static_cast<size_t>(y + row) * w + x) * 4], src.pixel(from.left, from.top + row),
                    static_cast<size_t>(from.width()) * 4);
}

void PixelBuffer::blend(const PixelBuffer& src, const CRect& area, int x, int y) {
    CRect from = area;
    if (!clip(src, from, x, y)) return;
    for (int row = 0; row < from.height(); ++row) {
        const uint8_t* s = src.pixel(from.left, from.top + row);
        uint8_t* d = &pixels[(static_cast<size_t>(y + row) * w + x) * 4];
        for (int i = 0; i < from.width(); ++i, s += 4, d += 4) {
            const unsigned a = s[3];
            if (a == 0) continue;
            if (a == 255) {
                std::memcpy(d, s, 4);
                continue;
            }
            // Rounded (s a + d (255 - a)) / 255 per channel; the result keeps the larger coverage.
            for (int c = 0; c < 3; ++c) {
                const unsigned v = s[c] * a + d[c] * (255 - a) + 128;
                d[c] = static_cast<uint8_t>((v + (v >> 8)) >> 8);
            }
            const unsigned cover = a + d[3] * (255 - a) / 255;
            d[3] = static_cast<uint8_t>(cover > 255 ? 255 : cover);
        }
    }
}

void PixelBuffer::fill(const CRect& area, uint32_t rgb) {
    const CRect r = area.intersected(CRect(0, 0, w, h));
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            uint8_t* d = &pixels[(static_cast<size_t>(y) * w + x) * 4];
            d[0] = static_cast<uint8_t>(rgb >> 16);
            d[1] = static_cast<uint8_t>(rgb >> 8);
            d[2] = static_cast<uint8_t>(rgb);
            d[3] = 255;
        }
}

void PixelBuffer::tint(const PixelBuffer& mask, const CRect& area, int x, int y, uint32_t rgb, const CRect& clip) {
    const uint8_t colour[3] = {static_cast<uint8_t>(rgb >> 16), static_cast<uint8_t>(rgb >> 8), static_cast<uint8_t>(rgb)};
    const CRect bounds = clip.intersected(CRect(0, 0, w, h));
    for (int row = 0; row < area.height(); ++row) {
        const int ty = y + row, sy = area.top + row;
        if (ty < bounds.top || ty >= bounds.bottom || sy < 0 || sy >= mask.h) continue;
        for (int col = 0; col < area.width(); ++col) {
            const int tx = x + col, sx = area.left + col;
            if (tx < bounds.left || tx >= bounds.right || sx < 0 || sx >= mask.w) continue;
            const unsigned a = mask.pixel(sx, sy)[3];
            if (a == 0) continue;
            uint8_t* d = &pixels[(static_cast<size_t>(ty) * w + tx) * 4];
            for (int c = 0; c < 3; ++c) {
                const unsigned v = colour[c] * a + d[c] * (255 - a) + 128;
                d[c] = static_cast<uint8_t>((v + (v >> 8)) >> 8);
            }
            d[3] = 255;
        }
    }
}

} // namespace kelm
