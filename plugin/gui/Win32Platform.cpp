// Windows back-end: a child window of the host's window, drawn with GDI from an off-screen
// 32-bit DIB section of the whole window, which is copied to the window for the areas that
// changed.  Pictures are decoded by stb_image and blended in software.
//
// The host's message loop delivers the mouse to the window procedure, which hands it on to the
// frame at once; drawing still happens only in the frame's idle, as on Linux.
#ifdef _WIN32

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
#include <windowsx.h>

#include <climits>
#include <cstdint>
#include <vector>

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#define STBI_NO_LINEAR
#define STBI_NO_HDR
#include <stb/stb_image.h>

#include "engine/ModuleResources.h"
#include "plugin/gui/Platform.h"

namespace {

// Pixels as 0xAARRGGBB with the colour premultiplied by alpha: the form blending wants.
class Win32Bitmap : public PlatformBitmap {
public:
    Win32Bitmap(int w, int h) : width(w), height(h), pixels(size_t(w) * size_t(h)) {}
    int getWidth() const override { return width; }
    int getHeight() const override { return height; }
    int width, height;
    std::vector<uint32_t> pixels;
};

class DibContext : public DrawContext {
public:
    DibContext(uint32_t* target, int w, int h) : pixels(target), width(w), height(h), clip(0, 0, w, h) {}

    void drawBitmap(const PlatformBitmap& platformBitmap, const CRect& destination, const CPoint& offset) override {
        const auto& bitmap = static_cast<const Win32Bitmap&>(platformBitmap);
        // The picture's own extent, placed so that `offset` lands on the destination's corner.
        const CRect picture(destination.left - offset.x, destination.top - offset.y,
                            destination.left - offset.x + bitmap.width, destination.top - offset.y + bitmap.height);
        const CRect area = destination.intersection(clip).intersection(picture);
        for (int y = area.top; y < area.bottom; ++y) {
            const uint32_t* from = &bitmap.pixels[size_t(y - picture.top) * size_t(bitmap.width)];
            uint32_t* to = pixels + size_t(y) * size_t(width);
            for (int x = area.left; x < area.right; ++x) {
                const uint32_t source = from[x - picture.left];
                const uint32_t alpha = source >> 24;
                if (alpha == 255) {
                    to[x] = source & 0xffffffu;
                } else if (alpha != 0) {
                    const uint32_t keep = 255 - alpha, under = to[x];
                    uint32_t result = 0;
                    for (int shift = 0; shift < 24; shift += 8) {
                        const uint32_t channel = ((source >> shift) & 0xff) + (((under >> shift) & 0xff) * keep + 127) / 255;
                        result |= (channel > 255 ? 255 : channel) << shift;
                    }
                    to[x] = result;
                }
            }
        }
    }

    void setClip(const CRect& area) override {
        const CRect all(0, 0, width, height);
        clip = area.isEmpty() ? all : area.intersection(all);
    }

private:
    uint32_t* pixels;
    int width, height;
    CRect clip;
};

int buttonsOf(WPARAM state) {
    int buttons = 0;
    if (state & MK_LBUTTON) buttons |= kLButton;
    if (state & MK_MBUTTON) buttons |= kMButton;
    if (state & MK_RBUTTON) buttons |= kRButton;
    if (state & MK_SHIFT) buttons |= kShift;
    if (state & MK_CONTROL) buttons |= kControl;
    return buttons;
}

const wchar_t kClassName[] = L"ormEditorWindow";
int windowsAlive = 0;  // the class stays registered while a window of it lives

LRESULT CALLBACK windowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
void unregisterClass();

class Win32Window : public PlatformWindow {
public:
    Win32Window(HWND parent, const CRect& size, PlatformWindowListener& owner)
        : listener(owner), width(size.getWidth()), height(size.getHeight()) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = width;
        info.bmiHeader.biHeight = -height;  // top row first
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        void* bits = nullptr;
        memoryDC = CreateCompatibleDC(nullptr);
        dib = CreateDIBSection(memoryDC, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
        if (!memoryDC || !dib || !bits) return;
        previousBitmap = SelectObject(memoryDC, dib);
        context.reset(new DibContext(static_cast<uint32_t*>(bits), width, height));
        hwnd = CreateWindowExW(0, kClassName, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, size.left, size.top, width,
                               height, parent, nullptr, static_cast<HINSTANCE>(vrn::getResourceModule()), this);
    }

    ~Win32Window() override {
        if (hwnd) {
            SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
            DestroyWindow(hwnd);
        }
        context.reset();
        if (memoryDC) {
            if (previousBitmap) SelectObject(memoryDC, previousBitmap);
            DeleteDC(memoryDC);
        }
        if (dib) DeleteObject(dib);
        unregisterClass();
    }

    bool valid() const { return hwnd != nullptr; }

    // Events arrive through the window procedure, from the host's message loop.
    void handleEvents() override {}

    DrawContext& getDrawContext() override { return *context; }

    void present(const CRect& area) override {
        const CRect visible = area.intersection(CRect(0, 0, width, height));
        if (visible.isEmpty() || !hwnd) return;
        HDC dc = GetDC(hwnd);
        if (!dc) return;
        BitBlt(dc, visible.left, visible.top, visible.getWidth(), visible.getHeight(), memoryDC, visible.left,
               visible.top, SRCCOPY);
        ReleaseDC(hwnd, dc);
        GdiFlush();  // the copy is done before the pixels are drawn again
    }

    // Window handles fit in 32 bits on 64-bit Windows.
    unsigned long getNativeHandle() const override { return HandleToULong(hwnd); }

    LRESULT handle(UINT message, WPARAM wParam, LPARAM lParam) {
        const CPoint where(GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam));
        switch (message) {
            case WM_PAINT: {
                PAINTSTRUCT paint;
                HDC dc = BeginPaint(hwnd, &paint);
                const RECT& r = paint.rcPaint;
                BitBlt(dc, r.left, r.top, r.right - r.left, r.bottom - r.top, memoryDC, r.left, r.top, SRCCOPY);
                EndPaint(hwnd, &paint);
                return 0;
            }
            case WM_ERASEBKGND:
                return 1;  // the picture covers everything: no flash of a background colour
            case WM_LBUTTONDOWN:
            case WM_MBUTTONDOWN:
            case WM_RBUTTONDOWN:
                SetCapture(hwnd);  // a drag goes on outside the window
                listener.platformMouseDown(where, buttonsOf(wParam));
                return 0;
            case WM_MOUSEMOVE:
                listener.platformMouseMoved(where, buttonsOf(wParam));
                return 0;
            case WM_LBUTTONUP:
            case WM_MBUTTONUP:
            case WM_RBUTTONUP:
                if (!(wParam & (MK_LBUTTON | MK_MBUTTON | MK_RBUTTON))) ReleaseCapture();
                listener.platformMouseUp(where, buttonsOf(wParam));
                return 0;
            case WM_MOUSEWHEEL: {
                POINT screen = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
                ScreenToClient(hwnd, &screen);
                listener.platformMouseWheel(CPoint(screen.x, screen.y),
                                            float(GET_WHEEL_DELTA_WPARAM(wParam)) / float(WHEEL_DELTA),
                                            buttonsOf(GET_KEYSTATE_WPARAM(wParam)));
                return 0;
            }
            default:
                return DefWindowProcW(hwnd, message, wParam, lParam);
        }
    }

    HWND hwnd = nullptr;

private:
    PlatformWindowListener& listener;
    int width, height;
    HDC memoryDC = nullptr;
    HBITMAP dib = nullptr;
    HGDIOBJ previousBitmap = nullptr;
    std::unique_ptr<DibContext> context;
};

LRESULT CALLBACK windowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto* window = static_cast<Win32Window*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        window->hwnd = hwnd;
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window));
    }
    auto* window = reinterpret_cast<Win32Window*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (!window) return DefWindowProcW(hwnd, message, wParam, lParam);
    if (message == WM_NCDESTROY) {
        // The host destroyed its window, and ours with it.
        window->hwnd = nullptr;
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    // No exception may unwind through the system's frames into the host.
    try {
        return window->handle(message, wParam, lParam);
    } catch (...) {
        return 0;
    }
}

bool registerClass() {
    if (windowsAlive++ > 0) return true;
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.hInstance = static_cast<HINSTANCE>(vrn::getResourceModule());
    windowClass.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    windowClass.lpszClassName = kClassName;
    if (RegisterClassExW(&windowClass) || GetLastError() == ERROR_CLASS_ALREADY_EXISTS) return true;
    --windowsAlive;
    return false;
}

// A module that goes away must take its class along: Windows keeps a DLL's classes.  The window
// owns one registration, from its making to its end.
void unregisterClass() {
    if (--windowsAlive == 0) UnregisterClassW(kClassName, static_cast<HINSTANCE>(vrn::getResourceModule()));
}

}  // namespace

std::shared_ptr<PlatformBitmap> decodePng(const unsigned char* data, size_t size) {
    if (!data || size == 0 || size > size_t(INT_MAX)) return nullptr;
    int width = 0, height = 0, channels = 0;
    stbi_uc* rgba = stbi_load_from_memory(data, int(size), &width, &height, &channels, 4);
    if (!rgba) return nullptr;
    auto bitmap = std::make_shared<Win32Bitmap>(width, height);
    const stbi_uc* p = rgba;
    for (uint32_t& pixel : bitmap->pixels) {
        const uint32_t a = p[3];
        auto premultiply = [a](uint32_t c) { return (c * a + 127) / 255; };
        pixel = (a << 24) | (premultiply(p[0]) << 16) | (premultiply(p[1]) << 8) | premultiply(p[2]);
        p += 4;
    }
    stbi_image_free(rgba);
    return bitmap;
}

std::unique_ptr<PlatformWindow> createPlatformWindow(void* parent, const CRect& size, PlatformWindowListener& listener) {
    HWND parentWindow = static_cast<HWND>(parent);
    if (!parentWindow || size.isEmpty() || !IsWindow(parentWindow)) return nullptr;
    if (!registerClass()) return nullptr;
    std::unique_ptr<Win32Window> window(new Win32Window(parentWindow, size, listener));
    if (!window->valid()) return nullptr;
    return window;
}

#endif
