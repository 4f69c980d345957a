#pragma once
#include <functional>
#include <string>
#include <vector>

#include "plugin/gui/CFont.h"
#include "plugin/gui/CView.h"

namespace kelm {

// A scrolling list of text rows: the wheel (or a drag) scrolls it, a click on a row calls
// onPick with the row's index on the GUI thread.
class CListView : public CView {
public:
    CListView(const CRect& size, const CFontPtr& font, std::function<void(int)> onPick);

    void setItems(const std::vector<std::string>& items);
    const std::vector<std::string>& getItems() const { return items; }
    // Marks one row (-1: none) and scrolls it into view.
    void setSelected(int index);
    int rowHeight() const { return font->cellHeight() + 6; }
    int visibleRows() const { return size.height() / rowHeight(); }
    int getScroll() const { return scroll; }
    // The row at a point of the frame, -1 where there is none.
    int rowAt(int x, int y) const;

    bool onMouseDown(const MouseEvent& e) override;
    void onMouseMove(const MouseEvent& e) override;
    void onMouseUp(const MouseEvent& e) override;
    void onWheel(const MouseEvent& e) override;
    void draw(PixelBuffer& target) override;

private:
    void scrollTo(int first);

    CFontPtr font;
    std::function<void(int)> onPick;
    std::vector<std::string> items;
    int selected = -1;
    int scroll = 0;
    int pressedRow = -1;
    int dragY = 0;
    bool dragged = false;
};

} // namespace kelm
