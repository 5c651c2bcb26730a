#include "Plot.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Spectrum.h"
#include "U87Model.h"

namespace ampdata_gen {

bool plotU87(const std::string& path) {
    const std::vector<int16_t> steps = synthesiseU87();
    std::vector<double> h(steps.size());
    for (size_t n = 0; n < steps.size(); ++n) h[n] = steps[n] / 32768.0;
    const double fLow = 20, fHigh = 20000, dbLow = -60, dbHigh = 30;
    const std::vector<double> f = logFrequencies(fLow, fHigh, 700);
    const std::vector<double> raw = magnitudeDb(h, kU87Rate, f, 8192);
    const std::vector<double> smooth = smoothedDb(h, kU87Rate, f, 8192, 1.0 / 6.0);
    // Relative to the smoothed level at 1 kHz.
    const double reference = smoothedDb(h, kU87Rate, {1000.0}, 8192, 1.0 / 6.0)[0];

    const int width = 900, height = 480, left = 70, right = 20, top = 40, bottom = 55;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    const double plotW = width - left - right, plotH = height - top - bottom;
    auto x = [&](double hz) { return left + plotW * std::log(hz / fLow) / std::log(fHigh / fLow); };
    auto y = [&](double db) {
        return top + plotH * (dbHigh - std::max(dbLow, std::min(dbHigh, db))) / (dbHigh - dbLow);
    };
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 12);
    char label[32];
    cairo_set_line_width(cr, 1);
    for (double decade : {10.0, 100.0, 1000.0, 10000.0})
        for (int m = 1; m <= 9; ++m) {
            const double hz = decade * m;
            if (hz < fLow || hz > fHigh) continue;
            cairo_set_source_rgb(cr, m == 1 ? 0.75 : 0.9, m == 1 ? 0.75 : 0.9, m == 1 ? 0.75 : 0.9);
            cairo_move_to(cr, x(hz), top);
            cairo_line_to(cr, x(hz), top + plotH);
            cairo_stroke(cr);
            if (m == 1 || m == 2 || m == 5) {
                std::snprintf(label, sizeof label, hz >= 1000 ? "%gk" : "%g", hz >= 1000 ? hz / 1000 : hz);
                cairo_set_source_rgb(cr, 0, 0, 0);
                cairo_move_to(cr, x(hz) - 8, top + plotH + 18);
                cairo_show_text(cr, label);
            }
        }
    for (double db = dbLow; db <= dbHigh; db += 10) {
        cairo_set_source_rgb(cr, 0.85, 0.85, 0.85);
        cairo_move_to(cr, left, y(db));
        cairo_line_to(cr, left + plotW, y(db));
        cairo_stroke(cr);
        std::snprintf(label, sizeof label, "%+.0f", db);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_move_to(cr, left - 38, y(db) + 4);
        cairo_show_text(cr, label);
    }
    auto curve = [&](const std::vector<double>& db, double r, double g, double b, double w) {
        cairo_set_source_rgb(cr, r, g, b);
        cairo_set_line_width(cr, w);
        for (size_t i = 0; i < f.size(); ++i) {
            if (i == 0)
                cairo_move_to(cr, x(f[i]), y(db[i] - reference));
            else
                cairo_line_to(cr, x(f[i]), y(db[i] - reference));
        }
        cairo_stroke(cr);
    };
    curve(raw, 0.65, 0.75, 0.95, 1.0);
    curve(smooth, 0.05, 0.2, 0.6, 2.0);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 1);
    cairo_rectangle(cr, left, top, plotW, plotH);
    cairo_stroke(cr);
    cairo_set_font_size(cr, 14);
    cairo_move_to(cr, left, top - 14);
    cairo_show_text(cr, "Cabinet response \"u87\": magnitude, first 8192 samples at 44.1 kHz (dB re 1 kHz)");
    cairo_set_font_size(cr, 12);
    cairo_move_to(cr, left + plotW / 2 - 40, height - 12);
    cairo_show_text(cr, "frequency (Hz)");
    cairo_set_source_rgb(cr, 0.65, 0.75, 0.95);
    cairo_move_to(cr, left + plotW - 250, top + 20);
    cairo_show_text(cr, "unsmoothed");
    cairo_set_source_rgb(cr, 0.05, 0.2, 0.6);
    cairo_move_to(cr, left + plotW - 160, top + 20);
    cairo_show_text(cr, "1/6-octave smoothed");
    const bool ok = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    return ok;
}

}  // namespace ampdata_gen
