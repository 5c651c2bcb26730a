#pragma once
// The widgets the editor is built from.  Each shows one frame of a strip of pictures stacked top
// to bottom, chosen by its value.

#include "plugin/gui/CView.h"

enum KnobMode { kCircularMode = 0, kRelativCircularMode = 1, kLinearMode = 2 };

// The frame of a strip that shows `value` among `frames` evenly spaced positions: the nearest.
int frameForValue(float value, int frames);

// A knob drawn from a strip of rotated pictures.  In linear mode a drag up or to the right turns
// it up: 200 pixels sweep the whole range, ten times finer with Shift.  In the circular modes it
// follows the pointer's angle over the knob's 300 degrees.
class CAnimKnob : public CControl {
public:
    static const int linearRange = 200;

    // The height of one picture is the view's height; the strip's height gives the frame count.
    CAnimKnob(const CRect& size, CControlListener* listener, int tag, CBitmap* background,
              const CPoint& offset = CPoint());

    int getNumSubPixmaps() const { return subPixmaps; }
    int getHeightOfOneImage() const { return heightOfOneImage; }
    void setNumSubPixmaps(int count) { subPixmaps = count; }
    void setHeightOfOneImage(int height) { heightOfOneImage = height; }
    int getFrame() const { return frameForValue(getValue(), subPixmaps); }

    void draw(DrawContext& context) override;
    void onMouseDown(const CPoint& where, int buttons) override;
    void onMouseMoved(const CPoint& where, int buttons) override;
    void onMouseUp(const CPoint& where, int buttons) override;
    void onWheel(const CPoint& where, float distance, int buttons) override;

private:
    float valueFromAngle(const CPoint& where) const;

    CPoint offset;
    int heightOfOneImage;
    int subPixmaps;
    CPoint firstPoint;
    float entryValue = 0;
    int mode = kLinearMode;
};

// A switch of several positions side by side (horizontal) or one above the other (vertical);
// clicking or dragging over a position selects it.  Position i of n has the value i / (n - 1);
// a value between positions shows the nearest one.
class CSwitchBase : public CControl {
public:
    CSwitchBase(const CRect& size, CControlListener* listener, int tag, CBitmap* background, bool horizontal);
    CSwitchBase(const CRect& size, CControlListener* listener, int tag, int subPixmaps, int heightOfOneImage,
                int maxPositions, CBitmap* background, bool horizontal);

    int getNumSubPixmaps() const { return subPixmaps; }
    int getHeightOfOneImage() const { return heightOfOneImage; }
    void setNumSubPixmaps(int count) { subPixmaps = count; }
    void setHeightOfOneImage(int height) { heightOfOneImage = height; }
    int getMaxPositions() const { return maxPositions; }
    int getFrame() const { return frameForValue(getValue(), subPixmaps); }
    // The value a click or drag at `where` selects.
    float valueAt(const CPoint& where) const;

    void draw(DrawContext& context) override;
    void onMouseDown(const CPoint& where, int buttons) override;
    void onMouseMoved(const CPoint& where, int buttons) override;
    void onMouseUp(const CPoint& where, int buttons) override;

private:
    bool horizontal;
    int heightOfOneImage;
    int subPixmaps;
    int maxPositions;
};

class CHorizontalSwitch : public CSwitchBase {
public:
    CHorizontalSwitch(const CRect& size, CControlListener* listener, int tag, CBitmap* background)
        : CSwitchBase(size, listener, tag, background, true) {}
    CHorizontalSwitch(const CRect& size, CControlListener* listener, int tag, int subPixmaps,
                      int heightOfOneImage, int maxPositions, CBitmap* background)
        : CSwitchBase(size, listener, tag, subPixmaps, heightOfOneImage, maxPositions, background, true) {}
};

class CVerticalSwitch : public CSwitchBase {
public:
    CVerticalSwitch(const CRect& size, CControlListener* listener, int tag, CBitmap* background)
        : CSwitchBase(size, listener, tag, background, false) {}
    CVerticalSwitch(const CRect& size, CControlListener* listener, int tag, int subPixmaps, int heightOfOneImage,
                    int maxPositions, CBitmap* background)
        : CSwitchBase(size, listener, tag, subPixmaps, heightOfOneImage, maxPositions, background, false) {}
};

// A button that flips between 0 (upper picture) and 1 (lower picture) at each click.
class COnOffButton : public CControl {
public:
    COnOffButton(const CRect& size, CControlListener* listener, int tag, CBitmap* background);

    void draw(DrawContext& context) override;
    void onMouseDown(const CPoint& where, int buttons) override;
    void onMouseUp(const CPoint& where, int buttons) override;
};
