#include "plugin/gui/Controls.h"

#include <algorithm>
#include <cmath>

#include "plugin/gui/CFrame.h"

int frameForValue(float value, int frames) {
    if (frames < 2) return 0;
    value = std::min(1.0f, std::max(0.0f, value));
    return std::min(frames - 1, int(value * float(frames - 1) + 0.5f));
}

// ---------------------------------------------------------------------------------------------

CAnimKnob::CAnimKnob(const CRect& rect, CControlListener* controlListener, int controlTag, CBitmap* bitmap,
                     const CPoint& handleOffset)
    : CControl(rect, controlListener, controlTag, bitmap),
      offset(handleOffset),
      heightOfOneImage(rect.getHeight()),
      subPixmaps(bitmap && rect.getHeight() > 0 ? bitmap->getHeight() / rect.getHeight() : 0) {}

void CAnimKnob::draw(DrawContext& context) {
    if (!background || subPixmaps <= 0) return;
    background->draw(context, size, CPoint(offset.x, offset.y + getFrame() * heightOfOneImage));
}

float CAnimKnob::valueFromAngle(const CPoint& where) const {
    // Angle from straight up, clockwise; the knob's travel is -150 to +150 degrees.
    double dx = where.x - (size.left + size.right) / 2.0, dy = where.y - (size.top + size.bottom) / 2.0;
    double degrees = std::atan2(dx, -dy) * 180.0 / 3.14159265358979323846;
    return float(std::min(1.0, std::max(0.0, (degrees + 150.0) / 300.0)));
}

void CAnimKnob::onMouseDown(const CPoint& where, int buttons) {
    if (!(buttons & kLButton)) return;
    mode = frame ? frame->getKnobMode() : kLinearMode;
    firstPoint = where;
    entryValue = getValue();
    beginEdit();
    if (mode != kLinearMode) valueChangedByUser(valueFromAngle(where));
}

void CAnimKnob::onMouseMoved(const CPoint& where, int buttons) {
    if (!isEditing()) return;
    if (mode != kLinearMode) {
        valueChangedByUser(valueFromAngle(where));
        return;
    }
    float scale = (buttons & kShift) ? 10.0f * linearRange : float(linearRange);
    float distance = float((firstPoint.y - where.y) + (where.x - firstPoint.x));
    valueChangedByUser(entryValue + distance / scale);
}

void CAnimKnob::onMouseUp(const CPoint&, int) {
    // The last move has set the value; the release's modifiers must not change it again.
    if (isEditing()) endEdit();
}

void CAnimKnob::onWheel(const CPoint&, float distance, int buttons) {
    beginEdit();
    valueChangedByUser(getValue() + distance * ((buttons & kShift) ? 0.001f : 0.01f));
    endEdit();
}

// ---------------------------------------------------------------------------------------------

CSwitchBase::CSwitchBase(const CRect& rect, CControlListener* controlListener, int controlTag, CBitmap* bitmap,
                         bool isHorizontal)
    : CControl(rect, controlListener, controlTag, bitmap),
      horizontal(isHorizontal),
      heightOfOneImage(rect.getHeight()),
      subPixmaps(bitmap && rect.getHeight() > 0 ? bitmap->getHeight() / rect.getHeight() : 0),
      maxPositions(subPixmaps) {}

CSwitchBase::CSwitchBase(const CRect& rect, CControlListener* controlListener, int controlTag, int frames,
                         int frameHeight, int positions, CBitmap* bitmap, bool isHorizontal)
    : CControl(rect, controlListener, controlTag, bitmap),
      horizontal(isHorizontal),
      heightOfOneImage(frameHeight),
      subPixmaps(frames),
      maxPositions(positions) {}

float CSwitchBase::valueAt(const CPoint& where) const {
    if (maxPositions < 2) return 0.0f;
    int extent = horizontal ? size.getWidth() : size.getHeight();
    int along = horizontal ? where.x - size.left : where.y - size.top;
    if (extent <= 0) return 0.0f;
    int position = along < 0 ? 0 : std::min(maxPositions - 1, int(long(along) * maxPositions / extent));
    return float(position) / float(maxPositions - 1);
}

void CSwitchBase::draw(DrawContext& context) {
    if (!background || subPixmaps <= 0) return;
    background->draw(context, size, CPoint(0, getFrame() * heightOfOneImage));
}

void CSwitchBase::onMouseDown(const CPoint& where, int buttons) {
    if (!(buttons & kLButton)) return;
    beginEdit();
    valueChangedByUser(valueAt(where));
}

void CSwitchBase::onMouseMoved(const CPoint& where, int) {
    if (isEditing()) valueChangedByUser(valueAt(where));
}

void CSwitchBase::onMouseUp(const CPoint&, int) {
    if (isEditing()) endEdit();
}

// ---------------------------------------------------------------------------------------------

COnOffButton::COnOffButton(const CRect& rect, CControlListener* controlListener, int controlTag, CBitmap* bitmap)
    : CControl(rect, controlListener, controlTag, bitmap) {}

void COnOffButton::draw(DrawContext& context) {
    if (!background) return;
    int frameHeight = background->getHeight() / 2;
    background->draw(context, size, CPoint(0, getValue() >= 0.5f ? frameHeight : 0));
}

void COnOffButton::onMouseDown(const CPoint&, int buttons) {
    if (!(buttons & kLButton)) return;
    beginEdit();
    valueChangedByUser(getValue() >= 0.5f ? 0.0f : 1.0f);
}

void COnOffButton::onMouseUp(const CPoint&, int) {
    if (isEditing()) endEdit();
}
