#include "tools/orm-jack/EditorWindow.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <poll.h>

#include <cstring>
#include <stdexcept>

namespace orm_jack {

EditorWindow::EditorWindow(AEffect* effectToShow, std::mutex& dispatchLock) : effect(effectToShow), lock(dispatchLock) {
    if (!(effect->flags & effFlagsHasEditor)) throw std::runtime_error("the module has no editor (use --no-gui)");
    ERect* rect = nullptr;
    if (dispatch(effEditGetRect, 0, &rect) == 0 || !rect || rect->right <= rect->left || rect->bottom <= rect->top)
        throw std::runtime_error("the editor gives no size");
    const unsigned width = unsigned(rect->right - rect->left), height = unsigned(rect->bottom - rect->top);
    display = XOpenDisplay(nullptr);
    if (!display) throw std::runtime_error("cannot open the X display (use --no-gui to play without a window)");
    const int screen = DefaultScreen(display);
    window = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, width, height, 0,
                                 BlackPixel(display, screen), BlackPixel(display, screen));
    // The title, in both the old and the desktop's UTF-8 form, and a class the desktop entry names.
    XStoreName(display, window, "orm");
    Atom utf8 = XInternAtom(display, "UTF8_STRING", False);
    XChangeProperty(display, window, XInternAtom(display, "_NET_WM_NAME", False), utf8, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>("orm"), 3);
    XClassHint classHint;
    char resourceName[] = "orm-jack", resourceClass[] = "orm";
    classHint.res_name = resourceName;
    classHint.res_class = resourceClass;
    XSetClassHint(display, window, &classHint);
    // The panel has one size.
    XSizeHints* hints = XAllocSizeHints();
    hints->flags = PMinSize | PMaxSize;
    hints->min_width = hints->max_width = int(width);
    hints->min_height = hints->max_height = int(height);
    XSetWMNormalHints(display, window, hints);
    XFree(hints);
    deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &deleteWindow, 1);
    XMapWindow(display, window);
    XSync(display, False);
    if (dispatch(effEditOpen, 0, reinterpret_cast<void*>(uintptr_t(window))) == 0) {
        XDestroyWindow(display, window);
        XCloseDisplay(display);
        throw std::runtime_error("the editor would not open");
    }
    editorOpen = true;
}

EditorWindow::~EditorWindow() {
    if (editorOpen) dispatch(effEditClose);
    if (display) {
        XDestroyWindow(display, window);
        XCloseDisplay(display);
    }
}

intptr_t EditorWindow::dispatch(int32_t opcode, intptr_t value, void* ptr) {
    std::lock_guard<std::mutex> guard(lock);
    return effect->dispatcher(effect, opcode, 0, value, ptr, 0.0f);
}

void EditorWindow::run(const std::function<bool()>& stop) {
    // About 60 idle calls a second: the editor draws and reads its own X events in them.
    const int idleMilliseconds = 16;
    while (!stop()) {
        pollfd ready = {ConnectionNumber(display), POLLIN, 0};
        poll(&ready, 1, idleMilliseconds);
        while (XPending(display)) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == ClientMessage && Atom(event.xclient.data.l[0]) == deleteWindow) return;
        }
        dispatch(effEditIdle);
    }
}

}  // namespace orm_jack
