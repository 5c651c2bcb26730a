#include "plugin/gui/CFrame.h"

#include "plugin/gui/AEffGUIEditor.h"

CFrame::CFrame(const CRect& rect, AEffGUIEditor* owner) : CView(rect), editor(owner) {}

CFrame::~CFrame() {
    window.reset();
    for (CView* view : views) view->forget();
}

bool CFrame::open(void* parent) {
    window = createPlatformWindow(parent, size, *this);
    invalidArea = CRect(0, 0, size.getWidth(), size.getHeight());
    return window != nullptr;
}

void CFrame::addView(CView* view) {
    view->attached(this);
    view->setDirty();
    views.push_back(view);
}

int CFrame::getKnobMode() const { return editor ? editor->getKnobMode() : 0; }

void CFrame::beginEdit(int tag) {
    if (editor) editor->beginEdit(tag);
}

void CFrame::endEdit(int tag) {
    if (editor) editor->endEdit(tag);
}

CView* CFrame::viewAt(const CPoint& where) const {
    for (auto it = views.rbegin(); it != views.rend(); ++it)
        if ((*it)->getMouseableArea().pointInside(where)) return *it;
    return nullptr;
}

void CFrame::platformMouseDown(const CPoint& where, int buttons) {
    if (mouseTarget) return;  // a second button during a drag changes nothing
    mouseTarget = viewAt(where);
    if (mouseTarget) mouseTarget->onMouseDown(where, buttons);
}

void CFrame::platformMouseMoved(const CPoint& where, int buttons) {
    if (mouseTarget) mouseTarget->onMouseMoved(where, buttons);
}

void CFrame::platformMouseUp(const CPoint& where, int buttons) {
    if (!mouseTarget) return;
    CView* target = mouseTarget;
    mouseTarget = nullptr;
    target->onMouseUp(where, buttons);
}

void CFrame::platformMouseWheel(const CPoint& where, float distance, int buttons) {
    if (CView* view = viewAt(where)) view->onWheel(where, distance, buttons);
}

void CFrame::platformInvalid(const CRect& area) { invalidArea.unite(area); }

void CFrame::drawArea(const CRect& area) {
    DrawContext& context = window->getDrawContext();
    context.setClip(area);
    if (background) background->draw(context, CRect(0, 0, size.getWidth(), size.getHeight()));
    for (CView* view : views)
        if (!view->getViewSize().intersection(area).isEmpty()) view->draw(context);
    context.setClip(CRect());
}

void CFrame::idle() {
    if (!window) return;
    window->handleEvents();
    // Each dirty view is drawn with the background and the views under and over it.
    CRect changed = invalidArea;
    for (CView* view : views) {
        if (!view->isDirty()) continue;
        view->setDirty(false);
        changed.unite(view->getViewSize());
    }
    invalidArea = CRect();
    if (changed.isEmpty()) return;
    drawArea(changed);
    window->present(changed);
}

void CFrame::redrawAll() {
    if (!window) return;
    for (CView* view : views) view->setDirty(false);
    CRect all(0, 0, size.getWidth(), size.getHeight());
    drawArea(all);
    window->present(all);
}
