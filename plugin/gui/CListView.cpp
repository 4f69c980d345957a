#include "plugin/gui/CListView.h"

#include <algorithm>
#include <cstdlib>

namespace kelm {

CListView::CListView(const CRect& size, const CFontPtr& font, std::function<void(int)> onPick)
    : CView(size), font(font), onPick(std::move(onPick)) {}

void CListView::setItems(const std::vector<std::string>& list) {
    items = list;
    selected = -1;
    scroll = 0;
    setDirty();
}

void CListView::setSelected(int index) {
    selected = index;
    if (index >= 0 && index < scroll) scrollTo(index);
    if (index >= scroll + visibleRows()) scrollTo(index - visibleRows() + 1);
    setDirty();
}

void CListView::scrollTo(int first) {
    const int last = std::max(0, static_cast<int>(items.size()) - visibleRows());
    first = std::max(0, std::min(first, last));
    if (first != scroll) {
        scroll = first;
        setDirty();
    }
}

int CListView::rowAt(int x, int y) const {
    if (!size.contains(x, y)) return -1;
    const int row = scroll + (y - size.top) / rowHeight();
    return row < static_cast<int>(items.size()) ? row : -1;
}

bool CListView::onMouseDown(const MouseEvent& e) {
    pressedRow = rowAt(e.x, e.y);
    dragY = e.y;
    dragged = false;
    return true;
}

void CListView::onMouseMove(const MouseEvent& e) {
    const int rows = (dragY - e.y) / rowHeight();
    if (rows != 0) {
        dragged = true;
        scrollTo(scroll + rows);
        dragY -= rows * rowHeight();
    }
}

void CListView::onMouseUp(const MouseEvent& e) {
    const int row = rowAt(e.x, e.y);
    if (!dragged && row >= 0 && row == pressedRow) {
        selected = row;
        setDirty();
        if (onPick) onPick(row);
    }
    pressedRow = -1;
}

void CListView::onWheel(const MouseEvent& e) { scrollTo(scroll - 3 * e.wheelSteps); }

void CListView::draw(PixelBuffer& target) {
    target.fill(size, 0x1e1a17);
    const int h = rowHeight();
    for (int r = 0; r < visibleRows() + 1; ++r) {
        const int i = scroll + r;
        if (i >= static_cast<int>(items.size())) break;
        const CRect row = CRect(size.left, size.top + r * h, size.right - 6, size.top + (r + 1) * h).intersected(size);
        if (i == selected) target.fill(row, 0x5a4a36);
        font->draw(target, items[i], row.left + 6, row.top + 3, 0xf0e6cc, row.width() - 12, row);
    }
    // The scroll bar: where the visible rows lie in the list.
    const int n = static_cast<int>(items.size());
    if (n > visibleRows()) {
        const int track = size.height();
        const int thumb = std::max(12, track * visibleRows() / n);
        const int top = size.top + (track - thumb) * scroll / std::max(1, n - visibleRows());
        target.fill(CRect(size.right - 5, size.top, size.right, size.bottom), 0x2e2823);
        target.fill(CRect(size.right - 5, top, size.right, top + thumb), 0x857564);
    }
}

} // namespace kelm
