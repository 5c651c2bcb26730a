#pragma once
// The base of a plug-in window built from a CFrame: size, open and close, idle and the knob
// mode, as the host adaptor asks for them.  It reaches the effect only through EditorHost, so
// that the widget layer can be driven without the host adaptor.

#include "plugin/AEffEditor.h"
#include "plugin/gui/CFrame.h"

class AudioEffect;

// What the editor needs of its effect: the parameters' current values and the way back for the
// user's moves.  The plug-in's effect provides it (setParameterAutomated tells the host).
class EditorHost {
public:
    virtual ~EditorHost() {}
    virtual float getParameter(int index) = 0;
    virtual void setParameterAutomated(int index, float value) = 0;
    virtual bool beginEdit(int index) = 0;
    virtual bool endEdit(int index) = 0;
    // The host adaptor's object behind this seam, if there is one.
    virtual AudioEffect* getAudioEffect() { return nullptr; }
};

class AEffGUIEditor : public AEffEditor {
public:
    explicit AEffGUIEditor(EditorHost* host);
    ~AEffGUIEditor() override;

    // GUI thread.  The rectangle stays valid as long as the editor.
    bool getRect(ERect** rect) override;
    bool open(void* parent) override;
    void close() override;
    bool isOpen() const override { return frame != nullptr; }
    // Handles the window's events and draws what changed; the host calls it often.
    void idle() override;
    bool setKnobMode(int mode) override;
    int getKnobMode() const { return knobMode; }

    // A widget's gesture, reaching the host as begin and end of an automation.
    virtual void beginEdit(int index);
    virtual void endEdit(int index);

    EditorHost* getHost() const { return host; }
    CFrame* getFrame() const { return frame; }
    void* getSystemWindow() const { return systemWindow; }

protected:
    EditorHost* host;
    CFrame* frame = nullptr;
    ERect rect{0, 0, 0, 0};
    int knobMode = 0;  // circular, until the editor asks for another
};
