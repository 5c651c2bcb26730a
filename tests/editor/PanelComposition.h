#pragma once
// What the editor's window must show for given values: the panel, each control's frame from its
// strip and the donation button's frame, composed with cairo straight from the picture files.

#include <cairo.h>

#include <algorithm>
#include <string>
#include <vector>

#include "EditorSupport.h"
#include "support/XServer.h"

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
    auto controls = shippedControls();
    for (size_t i = 0; i < controls->size(); ++i) {
        auto& c = *(*controls)[i];
        int frames = c.getControlType() == "CAnimKnob" ? 101 : c.getControlType() == "CHorizontalSwitch" ? 3 : 2;
        int frame = std::min(frames - 1, int(values[i] * float(frames - 1) + 0.5f));
        paint(c.getImage(), c.getX(), c.getY(), c.getWidth(), c.getHeight(), frame);
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
