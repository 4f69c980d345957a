#pragma once

namespace kelm {

// A rectangle in pixels: left and top inclusive, right and bottom exclusive.
struct CRect {
    int left = 0, top = 0, right = 0, bottom = 0;

    CRect() {}
    CRect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}
    static CRect ofSize(int l, int t, int w, int h) { return CRect(l, t, l + w, t + h); }

    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool isEmpty() const { return right <= left || bottom <= top; }
    bool contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
    // The smallest rectangle holding both; an empty one does not count.
    CRect united(const CRect& o) const {
        if (isEmpty()) return o;
        if (o.isEmpty()) return *this;
        return CRect(left < o.left ? left : o.left, top < o.top ? top : o.top, right > o.right ? right : o.right,
                     bottom > o.bottom ? bottom : o.bottom);
    }
    CRect intersected(const CRect& o) const {
        CRect r(left > o.left ? left : o.left, top > o.top ? top : o.top, right < o.right ? right : o.right,
                bottom < o.bottom ? bottom : o.bottom);
        return r.isEmpty() ? CRect() : r;
    }
    bool operator==(const CRect& o) const {
        return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
    }
};

} // namespace kelm
