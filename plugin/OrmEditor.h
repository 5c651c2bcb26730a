#pragma once
// The plug-in's window: the amplifier's picture with one widget per control of the system
// description, placed and drawn as the controls' widget data say, and the donation button.

#include <atomic>
#include <memory>
#include <vector>

#include "engine/Control.h"
#include "plugin/gui/AEffGUIEditor.h"
#include "plugin/gui/Controls.h"

class OrmEditor : public AEffGUIEditor, public CControlListener {
public:
    typedef std::vector<std::shared_ptr<vrn::Control>> ControlList;

    // GUI thread.  Reads the panel picture's size, so that the host can ask for the rectangle
    // before the window opens.
    OrmEditor(EditorHost* effect, const std::shared_ptr<ControlList>& controls);
    ~OrmEditor() override;

    // Throws VRNException for a control type that has no widget; false if no window could be made.
    bool open(void* parent) override;
    void close() override;
    // Any thread, never waits; nothing while closed.  close() waits for a call that is writing
    // to a widget, so that it never frees one under it.
    void setParameter(int index, float value) override;

    void valueChanged(CControl* control) override;
    void controlBeginEdit(CControl*) override {}
    void controlEndEdit(CControl*) override {}

    // The widget of control `index` while open, else null.
    CControl* getWidget(int index) const;

private:
    std::shared_ptr<ControlList> controls;
    std::vector<CControl*> widgets;
    // Whether other threads may write to the widgets, and how many are doing so.
    std::atomic<bool> shown{false};
    std::atomic<int> writers{0};
};
