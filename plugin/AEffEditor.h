#pragma once
// The editor as the host adaptor sees it: window rectangle, open, close, idle, keys.  The window
// itself derives from this.

#include "plugin/vst2/aeffect.h"

class AudioEffect;

class AEffEditor {
public:
    explicit AEffEditor(AudioEffect* effect = nullptr) : effect(effect) {}
    virtual ~AEffEditor() {}

    // GUI thread.
    virtual bool getRect(ERect** rect) {
        *rect = nullptr;
        return false;
    }
    virtual bool open(void* parent) {
        systemWindow = parent;
        return false;
    }
    virtual void close() { systemWindow = nullptr; }
    virtual bool isOpen() const { return systemWindow != nullptr; }
    virtual void idle() {}
    virtual bool onKeyDown(VstKeyCode&) { return false; }
    virtual bool onKeyUp(VstKeyCode&) { return false; }
    virtual bool setKnobMode(int) { return false; }
    // Any thread: shows a parameter's new value; must not block.
    virtual void setParameter(int, float) {}

    AudioEffect* getEffect() const { return effect; }

protected:
    AudioEffect* effect;
    void* systemWindow = nullptr;
};
