#pragma once
// The editor's panel as its tests know it: each control's place, strip and frame count, and what
// the window must show for given values (the panel, each control's frame from its strip and the
// donation button's frame), composed with cairo straight from the picture files.

#include <cairo.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/XServer.h"

struct PanelControl {
    const char* name;
    const char* strip;
    int left, top, width, height, frames;
};

// In parameter order.
inline const std::vector<PanelControl> panelControls = {
    {"Volume", "fender-chicken.png", 281, 272, 66, 66, 101},
    {"Feedback", "fender-chicken.png", 369, 272, 66, 66, 101},
    {"Output", "fender-chicken.png", 465, 272, 66, 66, 101},
    {"Oversampling", "HorizontalSwitch-3P.png", 723, 274, 40, 20, 3},
    {"Cabinet", "VerticalSwitch.png", 721, 304, 20, 40, 2},
    {"CPU", "VerticalSwitch.png", 671, 304, 20, 40, 2},
    {"Input", "fender-chicken.png", 185, 272, 66, 66, 101},
    {"Stereo", "VerticalSwitch.png", 778, 304, 20, 40, 2},
};

// The built-in description's initial values, in parameter order.
inline std::vector<float> initialValues() { return {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f}; }

inline xtest::Screenshot compose(const std::vector<float>& values, int donateFrame) {
    std::string dir = std::string(ORM_SOURCE_DIR) + "/resources/";
    cairo_surface_t* target = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1000, 400);
    cairo_t* cr = cairo_create(target);
    auto paint = [&](const std::string& file, int x, int y, int w, int h, int frame) {
        cairo_surface_t* picture = cairo_image_surface_create_from_png((dir + file).c_str());
        cairo_save(cr);
        cairo_rectangle(cr, x, y, w, h);
        cairo_clip(cr);
        cairo_set_source_surface(cr, picture, x, y - frame * h);
        cairo_paint(cr);
        cairo_restore(cr);
        cairo_surface_destroy(picture);
    };
    paint("orm.png", 0, 0, 1000, 400, 0);
    for (size_t i = 0; i < panelControls.size(); ++i) {
        const PanelControl& c = panelControls[i];
        int frame = std::min(c.frames - 1, int(values[i] * float(c.frames - 1) + 0.5f));
        paint(c.strip, c.left, c.top, c.width, c.height, frame);
    }
    paint("donate.png", 454, 237, 92, 26, donateFrame);
    cairo_destroy(cr);
    cairo_surface_flush(target);
    xtest::Screenshot shot;
    shot.width = 1000;
    shot.height = 400;
    unsigned char* data = cairo_image_surface_get_data(target);
    int stride = cairo_image_surface_get_stride(target);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 1000; ++x)
            shot.pixels.push_back(reinterpret_cast<uint32_t*>(data + size_t(y) * stride)[x] & 0xffffff);
    cairo_surface_destroy(target);
    return shot;
}
