#include "plugin/gui/CFont.h"

#include <algorithm>

namespace kelm {

std::shared_ptr<CFont> CFont::load(const std::string& name) { return std::make_shared<CFont>(CBitmap::load(name)); }

CFont::CFont(const CBitmapPtr& g) : glyphs(g), cellW(std::max(1, g->getWidth() / 16)), cellH(std::max(1, g->getHeight() / 6)) {}

int CFont::textWidth(const std::string& text, int maxWidth) const {
    const int w = static_cast<int>(text.size()) * cellW;
    return maxWidth > 0 ? std::min(w, maxWidth / cellW * cellW) : w;
}

void CFont::draw(PixelBuffer& target, const std::string& text, int x, int y, uint32_t rgb, int maxWidth,
                 const CRect& clip) const {
    size_t count = text.size();
    bool cut = false;
    if (maxWidth > 0 && static_cast<int>(count) * cellW > maxWidth) {
        count = static_cast<size_t>(std::max(0, maxWidth / cellW - 1));
        cut = true;
    }
    auto glyph = [&](unsigned char c, int px) {
        const int code = (c >= 32 && c <= 127) ? c : '?';
        const int i = code - 32;
        const CRect cell = CRect::ofSize((i % 16) * cellW, (i / 16) * cellH, cellW, cellH);
        target.tint(glyphs->pixels(), cell, px, y, rgb, clip);
    };
    for (size_t k = 0; k < count; ++k) glyph(static_cast<unsigned char>(text[k]), x + static_cast<int>(k) * cellW);
    if (cut) glyph(127, x + static_cast<int>(count) * cellW);
}

} // namespace kelm
