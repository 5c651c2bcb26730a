#pragma once
// Views and controls: rectangles on a frame that draw themselves from pictures, and controls that
// hold a value 0..1 and tell a listener when the user moves them.  A change of value marks the
// view dirty; the frame draws dirty views at its next idle.  GUI thread, except setValue, which
// hosts may call from other threads: it only writes the value and raises the dirty mark.

#include <atomic>

#include "plugin/gui/CBitmap.h"
#include "plugin/gui/GuiTypes.h"

class CFrame;
class CControl;

class CView : public CBaseObject {
public:
    explicit CView(const CRect& size);
    ~CView() override;

    virtual void draw(DrawContext& context);
    virtual void onMouseDown(const CPoint&, int) {}
    virtual void onMouseMoved(const CPoint&, int) {}
    virtual void onMouseUp(const CPoint&, int) {}
    virtual void onWheel(const CPoint&, float, int) {}

    const CRect& getViewSize() const { return size; }
    void setViewSize(const CRect& rect);
    const CRect& getMouseableArea() const { return mouseableArea; }
    void setMouseableArea(const CRect& rect) { mouseableArea = rect; }
    // The view keeps a reference to its background picture.
    void setBackground(CBitmap* bitmap);
    CBitmap* getBackground() const { return background; }

    void setDirty(bool dirty = true) { dirtyMark.store(dirty, std::memory_order_release); }
    bool isDirty() const { return dirtyMark.load(std::memory_order_acquire); }

    CFrame* getFrame() const { return frame; }
    void attached(CFrame* parent) { frame = parent; }

protected:
    CRect size;
    CRect mouseableArea;
    CBitmap* background = nullptr;
    CFrame* frame = nullptr;
    std::atomic<bool> dirtyMark{true};
};

class CControlListener {
public:
    virtual ~CControlListener() {}
    virtual void valueChanged(CControl* control) = 0;
    virtual void controlBeginEdit(CControl*) {}
    virtual void controlEndEdit(CControl*) {}
};

class CControl : public CView {
public:
    CControl(const CRect& size, CControlListener* listener, int tag, CBitmap* background);

    // Any thread: clamps to 0..1; a new value makes the control dirty.
    virtual void setValue(float value);
    float getValue() const { return value.load(std::memory_order_acquire); }
    int getTag() const { return tag; }
    void setListener(CControlListener* newListener) { listener = newListener; }
    CControlListener* getListener() const { return listener; }

    // The user's gesture: begin, one or more changes, end.  The editor hears of begin and end
    // (host automation), the listener of all three.
    void beginEdit();
    void endEdit();
    bool isEditing() const { return editing; }
    // A user's move: sets the value and, if that changed it, tells the listener.
    void valueChangedByUser(float newValue);

protected:
    CControlListener* listener;
    int tag;
    std::atomic<float> value{0.0f};
    bool editing = false;
};
