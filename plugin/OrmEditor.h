#pragma once
// The plug-in's window: the amplifier's picture with one widget per control of the system
// description, placed and drawn as the controls' widget data say, and the donation button.

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

    // Throws VRNException for a control type that has no widget; false if no window could be made.
    bool open(void* parent) override;
    void close() override;
    // Any thread; nothing while closed.
    void setParameter(int index, float value) override;

    void valueChanged(CControl* control) override;
    void controlBeginEdit(CControl*) override {}
    void controlEndEdit(CControl*) override {}

    // The widget of control `index` while open, else null.
    CControl* getWidget(int index) const;

private:
    std::shared_ptr<ControlList> controls;
    std::vector<CControl*> widgets;
};
