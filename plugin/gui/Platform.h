#pragma once
// The one interface between the widgets and a windowing system.  A back-end supplies decoded
// pictures, a child window of the host's window that reports the mouse, and a way to draw
// pictures into that window.  Linux: X11Platform.cpp (Xlib and cairo); Windows: Win32Platform.cpp
// (GDI).  The back-ends start no thread: drawing is presented only when the frame's idle() asks,
// and events are fetched then too (on Windows the host's message loop delivers them).

#include <memory>

#include "plugin/gui/GuiTypes.h"

// A decoded picture, 8 bits a channel with alpha.
class PlatformBitmap {
public:
    virtual ~PlatformBitmap() {}
    virtual int getWidth() const = 0;
    virtual int getHeight() const = 0;
};

// Null when the bytes are not a picture the back-end can read.
std::shared_ptr<PlatformBitmap> decodePng(const unsigned char* data, size_t size);

class DrawContext {
public:
    virtual ~DrawContext() {}
    // Draws the part of `bitmap` whose top left corner is `offset` into `destination`, blended
    // over what is there by the picture's alpha.
    virtual void drawBitmap(const PlatformBitmap& bitmap, const CRect& destination, const CPoint& offset) = 0;
    // Limits the drawing until the next call; an empty rectangle lifts the limit.
    virtual void setClip(const CRect& clip) = 0;
};

// What a window reports to its owner (the CFrame).
class PlatformWindowListener {
public:
    virtual ~PlatformWindowListener() {}
    virtual void platformMouseDown(const CPoint& where, int buttons) = 0;
    virtual void platformMouseMoved(const CPoint& where, int buttons) = 0;
    virtual void platformMouseUp(const CPoint& where, int buttons) = 0;
    virtual void platformMouseWheel(const CPoint& where, float distance, int buttons) = 0;
    // Part of the window was uncovered and must be drawn again.
    virtual void platformInvalid(const CRect& area) = 0;
};

class PlatformWindow {
public:
    virtual ~PlatformWindow() {}
    // Handles every event that is waiting, without blocking.
    virtual void handleEvents() = 0;
    // Drawing goes to an off-screen copy of the window...
    virtual DrawContext& getDrawContext() = 0;
    // ...and reaches the screen, for the given area, here.
    virtual void present(const CRect& area) = 0;
    // The platform's id of the window (an X11 Window, an HWND), for tests and hosts.
    virtual unsigned long getNativeHandle() const = 0;
};

// Null if the window cannot be made (no display, bad parent).
std::unique_ptr<PlatformWindow> createPlatformWindow(void* parent, const CRect& size, PlatformWindowListener& listener);
