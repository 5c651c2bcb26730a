#pragma once
// The base of a plug-in window built from a CFrame: size, open and close, idle and the knob
// mode, as the host adaptor asks for them.  It reaches the effect only through EditorHost.

#include <cstdint>

#include "plugin/gui/CFrame.h"

// What the editor needs of its effect: the parameters' current values and the way back for the
// user's moves.  The plug-in's effect provides it (setParameterAutomated tells the host).
class EditorHost {
public:
    virtual ~EditorHost() {}
    virtual float getParameter(int index) = 0;
    virtual void setParameterAutomated(int index, float value) = 0;
    virtual bool beginEdit(int index) = 0;
    virtual bool endEdit(int index) = 0;
};

// The window rectangle as the host interface hands it out (top, left, bottom, right).
struct EditorRect {
    int16_t top, left, bottom, right;
};

class AEffGUIEditor {
public:
    explicit AEffGUIEditor(EditorHost* effect);
    virtual ~AEffGUIEditor();

    // GUI thread.  The rectangle stays valid as long as the editor.
    virtual bool getRect(EditorRect** rect);
    virtual bool open(void* parent);
    virtual void close();
    virtual bool isOpen() const { return frame != nullptr; }
    // Handles the window's events and draws what changed; the host calls it often.
    virtual void idle();
    virtual bool setKnobMode(int mode);
    int getKnobMode() const { return knobMode; }
    // Any thread: shows a parameter's new value; must not block.
    virtual void setParameter(int, float) {}

    // A widget's gesture, reaching the host as begin and end of an automation.
    virtual void beginEdit(int index);
    virtual void endEdit(int index);

    EditorHost* getEffect() const { return effect; }
    CFrame* getFrame() const { return frame; }
    void* getSystemWindow() const { return systemWindow; }

protected:
    EditorHost* effect;
    CFrame* frame = nullptr;
    EditorRect rect{0, 0, 0, 0};
    void* systemWindow = nullptr;
    int knobMode = 0;  // circular, until the editor asks for another
};
