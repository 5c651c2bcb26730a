// Linux back-end: an X11 child window of the host's window with its own display connection,
// drawn with cairo into an off-screen image of the whole window, which is copied to the window
// for the areas that changed.

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <cairo-xlib.h>
#include <cairo.h>

#include <cstdint>
#include <cstring>

#include "plugin/gui/Platform.h"

namespace {

class CairoBitmap : public PlatformBitmap {
public:
    explicit CairoBitmap(cairo_surface_t* picture) : surface(picture) {}
    ~CairoBitmap() override { cairo_surface_destroy(surface); }
    int getWidth() const override { return cairo_image_surface_get_width(surface); }
    int getHeight() const override { return cairo_image_surface_get_height(surface); }
    cairo_surface_t* surface;
};

struct MemoryReader {
    const unsigned char* data;
    size_t size;
    size_t position;
};

cairo_status_t readMemory(void* closure, unsigned char* out, unsigned int length) {
    auto* reader = static_cast<MemoryReader*>(closure);
    if (reader->size - reader->position < length) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(out, reader->data + reader->position, length);
    reader->position += length;
    return CAIRO_STATUS_SUCCESS;
}

class CairoContext : public DrawContext {
public:
    explicit CairoContext(cairo_t* context) : cr(context) {}
    void drawBitmap(const PlatformBitmap& bitmap, const CRect& destination, const CPoint& offset) override {
        cairo_save(cr);
        cairo_rectangle(cr, destination.left, destination.top, destination.getWidth(), destination.getHeight());
        cairo_clip(cr);
        cairo_set_source_surface(cr, static_cast<const CairoBitmap&>(bitmap).surface, destination.left - offset.x,
                                 destination.top - offset.y);
        cairo_paint(cr);
        cairo_restore(cr);
    }
    void setClip(const CRect& clip) override {
        cairo_reset_clip(cr);
        if (clip.isEmpty()) return;
        cairo_rectangle(cr, clip.left, clip.top, clip.getWidth(), clip.getHeight());
        cairo_clip(cr);
    }

private:
    cairo_t* cr;
};

int buttonsOf(unsigned int state) {
    int buttons = 0;
    if (state & Button1Mask) buttons |= kLButton;
    if (state & Button2Mask) buttons |= kMButton;
    if (state & Button3Mask) buttons |= kRButton;
    if (state & ShiftMask) buttons |= kShift;
    if (state & ControlMask) buttons |= kControl;
    return buttons;
}

int buttonOf(unsigned int button) {
    switch (button) {
        case Button1: return kLButton;
        case Button2: return kMButton;
        case Button3: return kRButton;
        default: return 0;
    }
}

class X11Window : public PlatformWindow {
public:
    X11Window(Display* connection, Window parent, Visual* visual, int depth, const CRect& size,
              PlatformWindowListener& owner)
        : display(connection), listener(owner), width(size.getWidth()), height(size.getHeight()) {
        XSetWindowAttributes set;
        set.background_pixmap = None;  // no flash of a background colour before the first paint
        set.event_mask = ExposureMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask | StructureNotifyMask;
        window = XCreateWindow(display, parent, size.left, size.top, unsigned(width), unsigned(height), 0,
                               CopyFromParent, InputOutput, CopyFromParent, CWBackPixmap | CWEventMask, &set);
        offscreen = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
        offscreenContext = cairo_create(offscreen);
        // On the usual 24-bit true-colour visuals the off-screen pixels are already in the
        // window's format and go out with XPutImage; any other visual goes through cairo-xlib.
        if (depth == 24 && visual->red_mask == 0xff0000 && visual->green_mask == 0xff00 && visual->blue_mask == 0xff) {
            image = XCreateImage(display, visual, 24, ZPixmap, 0,
                                 reinterpret_cast<char*>(cairo_image_surface_get_data(offscreen)), unsigned(width),
                                 unsigned(height), 32, cairo_image_surface_get_stride(offscreen));
            if (image) {
                const uint16_t probe = 1;
                image->byte_order = *reinterpret_cast<const uint8_t*>(&probe) ? LSBFirst : MSBFirst;
                gc = XCreateGC(display, window, 0, nullptr);
            }
        }
        if (!image) windowSurface = cairo_xlib_surface_create(display, window, visual, width, height);
        context.reset(new CairoContext(offscreenContext));
        XMapWindow(display, window);
        XFlush(display);
    }

    ~X11Window() override {
        context.reset();
        if (image) {
            image->data = nullptr;  // the pixels belong to cairo
            XDestroyImage(image);
            XFreeGC(display, gc);
        }
        if (windowSurface) cairo_surface_destroy(windowSurface);
        cairo_destroy(offscreenContext);
        cairo_surface_destroy(offscreen);
        XDestroyWindow(display, window);
        XCloseDisplay(display);
    }

    void handleEvents() override {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.xany.window != window) continue;
            switch (event.type) {
                case Expose:
                    listener.platformInvalid(CRect(event.xexpose.x, event.xexpose.y,
                                                   event.xexpose.x + event.xexpose.width,
                                                   event.xexpose.y + event.xexpose.height));
                    break;
                case ButtonPress:
                    if (event.xbutton.button == Button4 || event.xbutton.button == Button5) {
                        listener.platformMouseWheel(CPoint(event.xbutton.x, event.xbutton.y),
                                                    event.xbutton.button == Button4 ? 1.0f : -1.0f,
                                                    buttonsOf(event.xbutton.state));
                    } else {
                        listener.platformMouseDown(CPoint(event.xbutton.x, event.xbutton.y),
                                                   buttonsOf(event.xbutton.state) | buttonOf(event.xbutton.button));
                    }
                    break;
                case ButtonRelease:
                    if (event.xbutton.button <= Button3)
                        listener.platformMouseUp(CPoint(event.xbutton.x, event.xbutton.y),
                                                 buttonsOf(event.xbutton.state) & ~buttonOf(event.xbutton.button));
                    break;
                case MotionNotify: {
                    // Only the latest position of a run of moves matters.
                    XEvent next;
                    while (XCheckTypedWindowEvent(display, window, MotionNotify, &next)) event = next;
                    listener.platformMouseMoved(CPoint(event.xmotion.x, event.xmotion.y), buttonsOf(event.xmotion.state));
                    break;
                }
                default: break;
            }
        }
    }

    DrawContext& getDrawContext() override { return *context; }

    void present(const CRect& area) override {
        CRect visible = area.intersection(CRect(0, 0, width, height));
        if (visible.isEmpty()) return;
        cairo_surface_flush(offscreen);
        if (image) {
            XPutImage(display, window, gc, image, visible.left, visible.top, visible.left, visible.top,
                      unsigned(visible.getWidth()), unsigned(visible.getHeight()));
            XFlush(display);
            return;
        }
        cairo_t* cr = cairo_create(windowSurface);
        cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
        cairo_set_source_surface(cr, offscreen, 0, 0);
        cairo_rectangle(cr, visible.left, visible.top, visible.getWidth(), visible.getHeight());
        cairo_fill(cr);
        cairo_destroy(cr);
        cairo_surface_flush(windowSurface);
        XFlush(display);
    }

    unsigned long getNativeHandle() const override { return window; }

private:
    Display* display;
    PlatformWindowListener& listener;
    int width, height;
    Window window = 0;
    XImage* image = nullptr;
    GC gc = nullptr;
    cairo_surface_t* windowSurface = nullptr;
    cairo_surface_t* offscreen = nullptr;
    cairo_t* offscreenContext = nullptr;
    std::unique_ptr<CairoContext> context;
};

bool requestFailed = false;
int noteFailure(Display*, XErrorEvent*) {
    requestFailed = true;
    return 0;
}

}  // namespace

std::shared_ptr<PlatformBitmap> decodePng(const unsigned char* data, size_t size) {
    MemoryReader reader{data, size, 0};
    cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(readMemory, &reader);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    return std::make_shared<CairoBitmap>(surface);
}

std::unique_ptr<PlatformWindow> createPlatformWindow(void* parent, const CRect& size, PlatformWindowListener& listener) {
    if (!parent || size.isEmpty()) return nullptr;
    // A connection of our own: the host's connection and its event loop stay untouched.
    Display* display = XOpenDisplay(nullptr);
    if (!display) return nullptr;
    // A wrong parent id must not end the host: Xlib's default error handler exits the process.
    Window parentWindow = Window(reinterpret_cast<uintptr_t>(parent));
    XWindowAttributes attributes;
    requestFailed = false;
    XErrorHandler previous = XSetErrorHandler(noteFailure);
    Status status = XGetWindowAttributes(display, parentWindow, &attributes);
    XSync(display, False);
    XSetErrorHandler(previous);
    if (!status || requestFailed) {
        XCloseDisplay(display);
        return nullptr;
    }
    return std::unique_ptr<PlatformWindow>(
        new X11Window(display, parentWindow, attributes.visual, attributes.depth, size, listener));
}
