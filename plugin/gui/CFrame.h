#pragma once
// The editor's window: a background picture and the views on it, in a platform child window of
// the host's window.  Owns its views.  No timer and no thread: idle() handles the waiting events
// and draws what became dirty.  GUI thread.

#include <memory>
#include <vector>

#include "plugin/gui/CView.h"
#include "plugin/gui/Platform.h"

class AEffGUIEditor;

class CFrame : public CView, private PlatformWindowListener {
public:
    CFrame(const CRect& size, AEffGUIEditor* editor);
    ~CFrame() override;

    // Makes the platform window inside `parent`; false if that fails.
    bool open(void* parent);
    // Takes over the creator's reference.
    void addView(CView* view);
    void idle();
    // Draws the whole frame now, whether dirty or not.
    void redrawAll();

    AEffGUIEditor* getEditor() const { return editor; }
    int getKnobMode() const;
    void beginEdit(int tag);
    void endEdit(int tag);
    const std::vector<CView*>& getViews() const { return views; }
    PlatformWindow* getPlatformWindow() const { return window.get(); }

private:
    void platformMouseDown(const CPoint& where, int buttons) override;
    void platformMouseMoved(const CPoint& where, int buttons) override;
    void platformMouseUp(const CPoint& where, int buttons) override;
    void platformMouseWheel(const CPoint& where, float distance, int buttons) override;
    void platformInvalid(const CRect& area) override;
    CView* viewAt(const CPoint& where) const;
    void drawArea(const CRect& area);

    AEffGUIEditor* editor;
    std::vector<CView*> views;
    CView* mouseTarget = nullptr;
    CRect invalidArea;
    std::unique_ptr<PlatformWindow> window;
};
