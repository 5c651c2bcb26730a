#pragma once
// The effect's editor in a top-level X window of its own, titled "orm": opened through the
// dispatcher like any host's, and given its idle calls from this program's main thread.

#include <X11/Xlib.h>

#include <csignal>
#include <functional>
#include <mutex>

#include "plugin/vst2/aeffect.h"

namespace orm_jack {

class EditorWindow {
public:
    // Throws std::runtime_error when there is no X display or the effect has no editor.
    EditorWindow(AEffect* effect, std::mutex& dispatchLock);
    ~EditorWindow();
    EditorWindow(const EditorWindow&) = delete;
    EditorWindow& operator=(const EditorWindow&) = delete;

    // Handles the window's events and gives the editor its idle calls until the window is closed
    // or stop() says so.
    void run(const std::function<bool()>& stop);

private:
    intptr_t dispatch(int32_t opcode, intptr_t value = 0, void* ptr = nullptr);

    AEffect* effect;
    std::mutex& lock;
    Display* display = nullptr;
    Window window = 0;
    Atom deleteWindow = 0;
    bool editorOpen = false;
};

}  // namespace orm_jack
