#include "plugin/gui/CView.h"

#include <algorithm>

#include "plugin/gui/CFrame.h"

CView::CView(const CRect& rect) : size(rect), mouseableArea(rect) {}

CView::~CView() {
    if (background) background->forget();
}

void CView::setViewSize(const CRect& rect) {
    size = rect;
    setDirty();
}

void CView::setBackground(CBitmap* bitmap) {
    if (bitmap) bitmap->remember();
    if (background) background->forget();
    background = bitmap;
    setDirty();
}

void CView::draw(DrawContext& context) {
    if (background) background->draw(context, size);
}

CControl::CControl(const CRect& rect, CControlListener* controlListener, int controlTag, CBitmap* bitmap)
    : CView(rect), listener(controlListener), tag(controlTag) {
    setBackground(bitmap);
}

void CControl::setValue(float newValue) {
    newValue = std::min(1.0f, std::max(0.0f, newValue));
    if (value.exchange(newValue, std::memory_order_acq_rel) != newValue) setDirty();
}

void CControl::beginEdit() {
    editing = true;
    if (listener) listener->controlBeginEdit(this);
    if (frame) frame->beginEdit(tag);
}

void CControl::endEdit() {
    if (frame) frame->endEdit(tag);
    if (listener) listener->controlEndEdit(this);
    editing = false;
}

void CControl::valueChangedByUser(float newValue) {
    float old = getValue();
    setValue(newValue);
    if (getValue() != old && listener) listener->valueChanged(this);
}
