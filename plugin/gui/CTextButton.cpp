#include "plugin/gui/CTextButton.h"

namespace kelm {

CTextButton::CTextButton(const CRect& size, const CFontPtr& font, const std::string& text, std::function<void()> onClick)
    : CView(size), font(font), text(text), onClick(std::move(onClick)) {}

void CTextButton::setText(const std::string& t) {
    text = t;
    setDirty();
}

void CTextButton::setToggle(bool isToggle, bool value) {
    toggle = isToggle;
    on = value;
    setDirty();
}

void CTextButton::setOn(bool value) {
    if (on == value) return;
    on = value;
    setDirty();
}

bool CTextButton::onMouseDown(const MouseEvent&) {
    pressed = true;
    setDirty();
    return true;
}

void CTextButton::onMouseUp(const MouseEvent& e) {
    pressed = false;
    setDirty();
    if (!size.contains(e.x, e.y)) return;
    if (toggle) on = !on;
    if (onClick) onClick();
}

void CTextButton::draw(PixelBuffer& target) {
    target.fill(size, kEdge);
    target.fill(CRect(size.left + 1, size.top + 1, size.right - 1, size.bottom - 1), pressed ? kPressed : kFace);
    std::string shown = text;
    int x;
    const int y = size.top + (size.height() - font->cellHeight()) / 2;
    if (toggle) {
        // A box, ticked while on, before the text.
        const int box = font->cellHeight() - 4;
        const CRect r = CRect::ofSize(size.left + 6, size.top + (size.height() - box) / 2, box, box);
        target.fill(r, kInk);
        target.fill(CRect(r.left + 1, r.top + 1, r.right - 1, r.bottom - 1), 0x201c18);
        if (on) target.fill(CRect(r.left + 3, r.top + 3, r.right - 3, r.bottom - 3), 0xe0a040);
        x = r.right + 6;
    } else {
        x = size.left + (size.width() - font->textWidth(shown, size.width() - 8)) / 2;
    }
    font->draw(target, shown, x, y, kInk, size.right - 4 - x, size);
}

} // namespace kelm
