#include "plugin/gui/CFrame.h"

#include <algorithm>

namespace kelm {

CFrame::CFrame(const CRect& size, const CBitmapPtr& background)
    : size(size), background(background), buffer(size.width(), size.height()) {
    renderAll();
}

CFrame::~CFrame() {
    window.reset();
    views.clear();
}

void CFrame::open(void* parent) {
    window.reset();
    if (parent) window = PlatformWindow::create(parent, size.width(), size.height(), this);
    exposed = true;
}

void CFrame::addView(CView* view) {
    views.emplace_back(view);
    view->setDirty();
}

void CFrame::removeView(CView* view) {
    auto it = std::find_if(views.begin(), views.end(), [view](const std::unique_ptr<CView>& v) { return v.get() == view; });
    if (it == views.end()) return;
    if (captured == view) captured = nullptr;
    const CRect area = view->getViewSize();
    views.erase(it);
    // Whatever lay under the view shows again.
    if (background) buffer.copy(background->pixels(), area, area.left, area.top);
    for (auto& v : views)
        if (!v->getViewSize().intersected(area).isEmpty()) v->setDirty();
    exposed = true;
}

void CFrame::drawView(CView* view) {
    const CRect& r = view->getViewSize();
    if (background) buffer.copy(background->pixels(), r, r.left, r.top);
    view->draw(buffer);
}

void CFrame::renderAll() {
    if (background) buffer.copy(background->pixels(), CRect(0, 0, size.width(), size.height()), 0, 0);
    for (auto& v : views) {
        v->takeDirty();
        v->draw(buffer);
    }
}

CRect CFrame::redrawDirty() {
    CRect changed;
    for (auto& v : views) {
        if (!v->takeDirty()) continue;
        drawView(v.get());
        changed = changed.united(v->getViewSize());
    }
    return changed.intersected(CRect(0, 0, size.width(), size.height()));
}

CRect CFrame::idle() {
    if (window) window->pumpEvents();
    CRect changed = redrawDirty();
    if (exposed) {
        exposed = false;
        changed = CRect(0, 0, size.width(), size.height());
    }
    if (window && !changed.isEmpty()) window->present(buffer, changed);
    return changed;
}

CView* CFrame::viewAt(int x, int y) const {
    for (auto it = views.rbegin(); it != views.rend(); ++it)
        if ((*it)->getViewSize().contains(x, y)) return it->get();
    return nullptr;
}

void CFrame::onMouse(const MouseEvent& e) {
    switch (e.type) {
    case MouseEvent::Down:
        if (captured) return;  // a second button during a gesture
        if (CView* v = viewAt(e.x, e.y))
            if (v->onMouseDown(e)) captured = v;
        return;
    case MouseEvent::Move:
        if (captured) captured->onMouseMove(e);
        return;
    case MouseEvent::Up:
        if (captured) {
            CView* v = captured;
            captured = nullptr;
            v->onMouseUp(e);
        }
        return;
    case MouseEvent::Wheel:
        if (!captured)
            if (CView* v = viewAt(e.x, e.y)) v->onWheel(e);
        return;
    }
}

} // namespace kelm
