#include "plugin/gui/CTextLabel.h"

namespace kelm {

CTextLabel::CTextLabel(const CRect& size, const CFontPtr& font, uint32_t rgb, Align align)
    : CView(size), font(font), colour(rgb), align(align) {}

void CTextLabel::setText(const std::string& t) {
    if (t == text) return;
    text = t;
    setDirty();
}

void CTextLabel::setColour(uint32_t rgb) {
    if (rgb == colour) return;
    colour = rgb;
    setDirty();
}

void CTextLabel::setFill(long rgb) {
    fill = rgb;
    setDirty();
}

void CTextLabel::draw(PixelBuffer& target) {
    if (fill >= 0) target.fill(size, static_cast<uint32_t>(fill));
    const int w = font->textWidth(text, size.width());
    int x = size.left;
    if (align == Centre) x += (size.width() - w) / 2;
    if (align == Right) x += size.width() - w;
    const int y = size.top + (size.height() - font->cellHeight()) / 2;
    font->draw(target, text, x, y, colour, size.width(), size);
}

} // namespace kelm
