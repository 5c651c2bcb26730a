// orm-pictures: draws the editor's five pictures (panel, knob strip, the two switch strips and
// the donation button) and writes them as 8-bit RGBA PNG files into a folder.
//
//   orm-pictures OUTDIR
//
// Everything is vector drawing plus deterministic pseudo-random texture, and the lettering comes
// from font files loaded by path (not through fontconfig), so that the same machine image always
// gives the same bytes.

#include <cairo-ft.h>
#include <cairo.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <png.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const double pi = 3.14159265358979323846;
const char* fontDirectory = "/usr/share/fonts/truetype/dejavu/";

// ---------------------------------------------------------------------------------------------
// Output

// cairo writes opaque pictures as RGB; the module's pictures are always RGBA, so we write the
// file ourselves (no time chunk, fixed compression: the bytes depend only on the pixels).
void writePng(cairo_surface_t* surface, const std::string& path) {
    cairo_surface_flush(surface);
    int width = cairo_image_surface_get_width(surface);
    int height = cairo_image_surface_get_height(surface);
    int stride = cairo_image_surface_get_stride(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);

    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) throw std::runtime_error("cannot write " + path);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(file);
        throw std::runtime_error("libpng failed on " + path);
    }
    png_init_io(png, file);
    png_set_compression_level(png, 9);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    std::vector<unsigned char> row(size_t(width) * 4);
    for (int y = 0; y < height; ++y) {
        const uint32_t* pixels = reinterpret_cast<const uint32_t*>(data + size_t(y) * stride);
        for (int x = 0; x < width; ++x) {
            uint32_t p = pixels[x];
            unsigned a = p >> 24, r = (p >> 16) & 255, g = (p >> 8) & 255, b = p & 255;
            if (a != 0 && a != 255) {  // cairo stores premultiplied colour
                r = (r * 255 + a / 2) / a;
                g = (g * 255 + a / 2) / a;
                b = (b * 255 + a / 2) / a;
            }
            unsigned char* out = &row[size_t(x) * 4];
            out[0] = (unsigned char)r;
            out[1] = (unsigned char)g;
            out[2] = (unsigned char)b;
            out[3] = (unsigned char)a;
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
}

// ---------------------------------------------------------------------------------------------
// Helpers

// Integer hash → [0, 1): the texture grain, identical on every run.
double grain(int x, int y, int seed = 0) {
    uint32_t h = uint32_t(x) * 374761393u + uint32_t(y) * 668265263u + uint32_t(seed) * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    h ^= h >> 16;
    return (h & 0xffffff) / double(0x1000000);
}

// Smooth value noise for the tolex pebbles.
double valueNoise(double x, double y, int seed) {
    int xi = int(std::floor(x)), yi = int(std::floor(y));
    double fx = x - xi, fy = y - yi;
    fx = fx * fx * (3 - 2 * fx);
    fy = fy * fy * (3 - 2 * fy);
    double a = grain(xi, yi, seed), b = grain(xi + 1, yi, seed);
    double c = grain(xi, yi + 1, seed), d = grain(xi + 1, yi + 1, seed);
    return (a * (1 - fx) + b * fx) * (1 - fy) + (c * (1 - fx) + d * fx) * fy;
}

cairo_surface_t* makeTexture(int width, int height, const std::function<void(int, int, double*)>& colour) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    unsigned char* data = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    double rgb[3];
    for (int y = 0; y < height; ++y) {
        uint32_t* row = reinterpret_cast<uint32_t*>(data + size_t(y) * stride);
        for (int x = 0; x < width; ++x) {
            colour(x, y, rgb);
            auto channel = [](double v) { return uint32_t(std::lround(std::fmin(1.0, std::fmax(0.0, v)) * 255)); };
            row[x] = 0xff000000u | channel(rgb[0]) << 16 | channel(rgb[1]) << 8 | channel(rgb[2]);
        }
    }
    cairo_surface_mark_dirty(surface);
    return surface;
}

void roundedRectangle(cairo_t* cr, double x, double y, double w, double h, double r) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -pi / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, pi / 2);
    cairo_arc(cr, x + r, y + h - r, r, pi / 2, pi);
    cairo_arc(cr, x + r, y + r, r, pi, 1.5 * pi);
    cairo_close_path(cr);
}

// Fonts by file, rendered unhinted with grey antialiasing: the same outlines on every system.
class Fonts {
public:
    Fonts() {
        if (FT_Init_FreeType(&library)) throw std::runtime_error("FreeType failed to start");
    }
    ~Fonts() {
        for (auto* face : faces) cairo_font_face_destroy(face);
        cairo_debug_reset_static_data();
        for (auto face : ftFaces) FT_Done_Face(face);
        FT_Done_FreeType(library);
    }
    cairo_font_face_t* load(const std::string& file) {
        FT_Face face;
        std::string path = fontDirectory + file;
        if (FT_New_Face(library, path.c_str(), 0, &face)) throw std::runtime_error("missing font " + path);
        ftFaces.push_back(face);
        faces.push_back(cairo_ft_font_face_create_for_ft_face(face, 0));
        return faces.back();
    }

private:
    FT_Library library;
    std::vector<FT_Face> ftFaces;
    std::vector<cairo_font_face_t*> faces;
};

struct Lettering {
    cairo_font_face_t* labels;  // condensed bold sans: the panel's legends
    cairo_font_face_t* logo;    // bold italic serif: the product name
};

void useFont(cairo_t* cr, cairo_font_face_t* face, double size) {
    cairo_set_font_face(cr, face);
    cairo_set_font_size(cr, size);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_set_font_options(cr, options);
    cairo_font_options_destroy(options);
}

// Width of a text drawn with extra spacing between letters.
double spacedWidth(cairo_t* cr, const std::string& text, double spacing) {
    double width = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        cairo_text_extents_t e;
        char glyph[2] = {text[i], 0};
        cairo_text_extents(cr, glyph, &e);
        width += e.x_advance + (i + 1 < text.size() ? spacing : 0);
    }
    return width;
}

// Draws text centred on cx with its baseline at y; a dark offset copy underneath makes screen
// print on a black plate read as slightly raised paint.
void centredText(cairo_t* cr, const std::string& text, double cx, double y, double spacing, double r, double g,
                 double b) {
    double x0 = cx - spacedWidth(cr, text, spacing) / 2;
    for (int pass = 0; pass < 2; ++pass) {
        double x = x0 + (pass == 0 ? 0.6 : 0), yy = y + (pass == 0 ? 0.8 : 0);
        if (pass == 0)
            cairo_set_source_rgba(cr, 0, 0, 0, 0.7);
        else
            cairo_set_source_rgb(cr, r, g, b);
        for (char c : text) {
            char glyph[2] = {c, 0};
            cairo_text_extents_t e;
            cairo_text_extents(cr, glyph, &e);
            cairo_move_to(cr, x, yy);
            cairo_show_text(cr, glyph);
            x += e.x_advance + spacing;
        }
    }
}

// ---------------------------------------------------------------------------------------------
// The panel

// Positions of the widgets on the panel (left, top, width, height), as the system description
// places them; the lettering is laid out around them.
struct Place {
    double x, y, w, h;
    double cx() const { return x + w / 2; }
    double cy() const { return y + h / 2; }
};
const Place inputKnob{185, 272, 66, 66}, volumeKnob{281, 272, 66, 66}, feedbackKnob{369, 272, 66, 66},
    outputKnob{465, 272, 66, 66};
const Place oversamplingSwitch{723, 274, 40, 20};
const Place cpuToggle{671, 304, 20, 40}, cabinetToggle{721, 304, 20, 40}, stereoToggle{778, 304, 20, 40};

// Centre of the slide switch's slider in its three positions, for the picture and the legends.
double slidePosition(int position) { return 7.5 + 12.5 * position; }

const double cream[3] = {0.96, 0.93, 0.84};
const double plateTop = 230, plateBottom = 386, plateLeft = 28, plateRight = 972;

void drawTolex(cairo_t* cr) {
    cairo_surface_t* tolex = makeTexture(1000, 400, [](int x, int y, double* rgb) {
        double pebble = valueNoise(x / 2.3, y / 2.3, 1) * 0.6 + valueNoise(x / 5.0, y / 5.0, 2) * 0.4;
        double v = 0.075 + 0.05 * pebble + 0.012 * (grain(x, y, 3) - 0.5);
        rgb[0] = v * 1.02;
        rgb[1] = v;
        rgb[2] = v * 0.97;
    });
    cairo_set_source_surface(cr, tolex, 0, 0);
    cairo_paint(cr);
    cairo_surface_destroy(tolex);
    // The cabinet's edges round away from the light.
    cairo_pattern_t* edge = cairo_pattern_create_linear(0, 0, 0, 400);
    cairo_pattern_add_color_stop_rgba(edge, 0, 1, 1, 1, 0.10);
    cairo_pattern_add_color_stop_rgba(edge, 0.04, 1, 1, 1, 0.0);
    cairo_pattern_add_color_stop_rgba(edge, 0.95, 0, 0, 0, 0.0);
    cairo_pattern_add_color_stop_rgba(edge, 1, 0, 0, 0, 0.35);
    cairo_set_source(cr, edge);
    cairo_paint(cr);
    cairo_pattern_destroy(edge);
}

void drawGrille(cairo_t* cr, const Lettering& fonts) {
    const double x = 28, y = 18, w = 944, h = 196;
    // Recess shadow, then the cloth: a silver-grey basket weave with a faint dark thread.
    roundedRectangle(cr, x - 3, y - 3, w + 6, h + 6, 10);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.6);
    cairo_fill(cr);
    cairo_surface_t* cloth = makeTexture(int(w), int(h), [](int px, int py, double* rgb) {
        int u = (px + py) & 7, v = (px - py + 1024) & 7;
        bool warp = ((px + py) / 8 + (px - py + 1024) / 8) & 1;
        double thread = warp ? (u < 6 ? 0.62 + 0.05 * std::sin(u * pi / 6) : 0.32)
                             : (v < 6 ? 0.58 + 0.05 * std::sin(v * pi / 6) : 0.30);
        double dark = ((px - py + 1024) % 23 == 0) ? -0.12 : 0.0;
        double n = 0.06 * (grain(px, py, 5) - 0.5);
        double value = thread + dark + n;
        rgb[0] = value * 0.98;
        rgb[1] = value * 0.97;
        rgb[2] = value * 0.93;
    });
    cairo_save(cr);
    roundedRectangle(cr, x, y, w, h, 8);
    cairo_clip(cr);
    cairo_set_source_surface(cr, cloth, x, y);
    cairo_paint(cr);
    cairo_surface_destroy(cloth);
    // Light from above and a soft vignette so the cloth sits behind the frame.
    cairo_pattern_t* shade = cairo_pattern_create_radial(500, 60, 80, 500, 110, 560);
    cairo_pattern_add_color_stop_rgba(shade, 0, 1, 1, 1, 0.06);
    cairo_pattern_add_color_stop_rgba(shade, 1, 0, 0, 0, 0.45);
    cairo_set_source(cr, shade);
    cairo_paint(cr);
    cairo_pattern_destroy(shade);
    cairo_restore(cr);
    // Piping: a cream cord around the cloth.
    roundedRectangle(cr, x + 1.5, y + 1.5, w - 3, h - 3, 7);
    cairo_set_line_width(cr, 3);
    cairo_set_source_rgb(cr, 0.80, 0.76, 0.66);
    cairo_stroke_preserve(cr);
    cairo_set_line_width(cr, 1);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.5);
    cairo_stroke(cr);

    // The product name: a raised cream script badge on the cloth, with its shadow.
    useFont(cr, fonts.logo, 92);
    const char* name = "orm";
    cairo_text_extents_t e;
    cairo_text_extents(cr, name, &e);
    double lx = 78, ly = 138;
    for (int pass = 0; pass < 3; ++pass) {
        cairo_save(cr);
        double dx = pass == 0 ? 4 : pass == 1 ? 1.5 : 0, dy = pass == 0 ? 6 : pass == 1 ? 2 : 0;
        cairo_move_to(cr, lx + dx, ly + dy);
        cairo_text_path(cr, name);
        if (pass == 0) {
            cairo_set_source_rgba(cr, 0, 0, 0, 0.45);
            cairo_fill(cr);
        } else if (pass == 1) {
            cairo_set_source_rgb(cr, 0.45, 0.40, 0.30);
            cairo_fill(cr);
        } else {
            cairo_pattern_t* face = cairo_pattern_create_linear(0, ly - e.height, 0, ly);
            cairo_pattern_add_color_stop_rgb(face, 0, 1.0, 0.98, 0.90);
            cairo_pattern_add_color_stop_rgb(face, 1, 0.86, 0.81, 0.68);
            cairo_set_source(cr, face);
            cairo_fill_preserve(cr);
            cairo_pattern_destroy(face);
            cairo_set_line_width(cr, 0.8);
            cairo_set_source_rgba(cr, 0.35, 0.30, 0.22, 0.8);
            cairo_stroke(cr);
        }
        cairo_restore(cr);
    }
    // The tail stroke under the name, as on a script logo.
    for (int pass = 0; pass < 2; ++pass) {
        double o = pass == 0 ? 2.5 : 0;
        cairo_move_to(cr, lx + 6 + o, ly + 14 + o);
        cairo_curve_to(cr, lx + 60 + o, ly + 6 + o, lx + 120 + o, ly + 8 + o, lx + e.x_advance + 14 + o, ly - 2 + o);
        cairo_set_line_width(cr, 4);
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
        if (pass == 0)
            cairo_set_source_rgba(cr, 0, 0, 0, 0.45);
        else
            cairo_set_source_rgb(cr, cream[0], cream[1], cream[2]);
        cairo_stroke(cr);
    }
}

void drawScrew(cairo_t* cr, double cx, double cy) {
    cairo_arc(cr, cx + 0.6, cy + 0.8, 4.6, 0, 2 * pi);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.6);
    cairo_fill(cr);
    cairo_pattern_t* head = cairo_pattern_create_radial(cx - 1.5, cy - 1.5, 0.5, cx, cy, 4.5);
    cairo_pattern_add_color_stop_rgb(head, 0, 0.95, 0.95, 0.95);
    cairo_pattern_add_color_stop_rgb(head, 1, 0.45, 0.45, 0.47);
    cairo_arc(cr, cx, cy, 4.2, 0, 2 * pi);
    cairo_set_source(cr, head);
    cairo_fill(cr);
    cairo_pattern_destroy(head);
    cairo_set_line_width(cr, 1.1);
    cairo_set_source_rgba(cr, 0.15, 0.15, 0.15, 0.9);
    cairo_move_to(cr, cx - 2.6, cy - 1.0);
    cairo_line_to(cr, cx + 2.6, cy + 1.0);
    cairo_move_to(cr, cx - 1.0, cy + 2.6);
    cairo_line_to(cr, cx + 1.0, cy - 2.6);
    cairo_stroke(cr);
}

void drawKnobScale(cairo_t* cr, const Place& knob) {
    // 0 to 10 over the knob's 300 degrees, as the pointer travels.
    double cx = knob.cx(), cy = knob.cy();
    for (int n = 0; n <= 10; ++n) {
        double a = (-150.0 + 30.0 * n) * pi / 180;
        double sx = std::sin(a), sy = -std::cos(a);
        char text[4];
        std::snprintf(text, sizeof text, "%d", n);
        cairo_text_extents_t e;
        cairo_text_extents(cr, text, &e);
        double r = 38.5;
        double tx = cx + r * sx - (e.x_bearing + e.width / 2), ty = cy + r * sy - (e.y_bearing + e.height / 2);
        cairo_set_source_rgba(cr, 0, 0, 0, 0.7);
        cairo_move_to(cr, tx + 0.5, ty + 0.7);
        cairo_show_text(cr, text);
        cairo_set_source_rgb(cr, cream[0], cream[1], cream[2]);
        cairo_move_to(cr, tx, ty);
        cairo_show_text(cr, text);
    }
}

void drawJewel(cairo_t* cr, double cx, double cy) {
    // Chrome bezel and a faceted red jewel, lit.
    cairo_pattern_t* glow = cairo_pattern_create_radial(cx, cy, 6, cx, cy, 30);
    cairo_pattern_add_color_stop_rgba(glow, 0, 1, 0.2, 0.1, 0.35);
    cairo_pattern_add_color_stop_rgba(glow, 1, 1, 0.2, 0.1, 0);
    cairo_arc(cr, cx, cy, 30, 0, 2 * pi);
    cairo_set_source(cr, glow);
    cairo_fill(cr);
    cairo_pattern_destroy(glow);
    cairo_pattern_t* bezel = cairo_pattern_create_linear(cx - 14, cy - 14, cx + 14, cy + 14);
    cairo_pattern_add_color_stop_rgb(bezel, 0, 0.95, 0.95, 0.96);
    cairo_pattern_add_color_stop_rgb(bezel, 0.5, 0.55, 0.56, 0.58);
    cairo_pattern_add_color_stop_rgb(bezel, 1, 0.85, 0.85, 0.87);
    cairo_arc(cr, cx, cy, 14, 0, 2 * pi);
    cairo_set_source(cr, bezel);
    cairo_fill(cr);
    cairo_pattern_destroy(bezel);
    cairo_pattern_t* jewel = cairo_pattern_create_radial(cx - 3, cy - 3, 1, cx, cy, 10);
    cairo_pattern_add_color_stop_rgb(jewel, 0, 1.0, 0.75, 0.6);
    cairo_pattern_add_color_stop_rgb(jewel, 0.35, 0.95, 0.12, 0.06);
    cairo_pattern_add_color_stop_rgb(jewel, 1, 0.45, 0.02, 0.02);
    cairo_arc(cr, cx, cy, 10, 0, 2 * pi);
    cairo_set_source(cr, jewel);
    cairo_fill(cr);
    cairo_pattern_destroy(jewel);
    cairo_set_line_width(cr, 0.7);
    cairo_set_source_rgba(cr, 0.3, 0, 0, 0.6);
    for (int i = 0; i < 8; ++i) {
        double a = i * pi / 4;
        cairo_move_to(cr, cx + 4 * std::cos(a), cy + 4 * std::sin(a));
        cairo_line_to(cr, cx + 9.5 * std::cos(a), cy + 9.5 * std::sin(a));
    }
    cairo_arc(cr, cx, cy, 4, 0, 2 * pi);
    cairo_stroke(cr);
    cairo_arc(cr, cx - 3.5, cy - 3.5, 2.2, 0, 2 * pi);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.8);
    cairo_fill(cr);
}

void drawPlate(cairo_t* cr, const Lettering& fonts) {
    // The control plate: black, finely brushed, with a cream pinstripe border.
    roundedRectangle(cr, plateLeft - 2, plateTop - 2, plateRight - plateLeft + 4, plateBottom - plateTop + 5, 5);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.7);
    cairo_fill(cr);
    int w = int(plateRight - plateLeft), h = int(plateBottom - plateTop);
    cairo_surface_t* metal = makeTexture(w, h, [h](int x, int y, double* rgb) {
        double brush = 0.02 * (valueNoise(x / 40.0, y * 1.7, 7) - 0.5) + 0.01 * (grain(x, y, 8) - 0.5);
        double v = 0.055 + 0.03 * (1.0 - double(y) / h) + brush;
        rgb[0] = rgb[1] = v;
        rgb[2] = v * 1.05;
    });
    cairo_save(cr);
    roundedRectangle(cr, plateLeft, plateTop, w, h, 4);
    cairo_clip(cr);
    cairo_set_source_surface(cr, metal, plateLeft, plateTop);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_surface_destroy(metal);
    // Chrome edge at the top where the light catches the plate.
    cairo_move_to(cr, plateLeft + 4, plateTop + 0.5);
    cairo_line_to(cr, plateRight - 4, plateTop + 0.5);
    cairo_set_line_width(cr, 1);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.35);
    cairo_stroke(cr);
    roundedRectangle(cr, plateLeft + 9.5, plateTop + 9.5, w - 19, h - 19, 3);
    cairo_set_line_width(cr, 1.2);
    cairo_set_source_rgba(cr, cream[0], cream[1], cream[2], 0.85);
    cairo_stroke(cr);

    for (double sx : {plateLeft + 20.0, plateRight - 20.0})
        for (double sy : {plateTop + 20.0, plateBottom - 20.0}) drawScrew(cr, sx, sy);

    // Knob scales and names.
    useFont(cr, fonts.labels, 8.5);
    for (const Place* knob : {&inputKnob, &volumeKnob, &feedbackKnob, &outputKnob}) drawKnobScale(cr, *knob);
    useFont(cr, fonts.labels, 10.5);
    const double nameLine = 363;
    centredText(cr, "INPUT", inputKnob.cx(), nameLine, 1.6, cream[0], cream[1], cream[2]);
    centredText(cr, "VOLUME", volumeKnob.cx(), nameLine, 1.6, cream[0], cream[1], cream[2]);
    centredText(cr, "FEEDBACK", feedbackKnob.cx(), nameLine, 1.6, cream[0], cream[1], cream[2]);
    centredText(cr, "OUTPUT", outputKnob.cx(), nameLine, 1.6, cream[0], cream[1], cream[2]);
    // The switches stand closer together: tighter letters keep their names apart.
    useFont(cr, fonts.labels, 9.5);
    centredText(cr, "CPU", cpuToggle.cx(), nameLine, 0.9, cream[0], cream[1], cream[2]);
    centredText(cr, "CABINET", cabinetToggle.cx(), nameLine, 0.9, cream[0], cream[1], cream[2]);
    centredText(cr, "STEREO", stereoToggle.cx(), nameLine, 0.9, cream[0], cream[1], cream[2]);

    // Oversampling: name above, the three factors over the switch's three positions.
    useFont(cr, fonts.labels, 8.5);
    centredText(cr, "OVERSAMPLING", oversamplingSwitch.cx(), 259, 1.2, cream[0], cream[1], cream[2]);
    useFont(cr, fonts.labels, 8);
    const char* factors[3] = {"2x", "4x", "8x"};
    for (int i = 0; i < 3; ++i)
        centredText(cr, factors[i], oversamplingSwitch.x + slidePosition(i), 270.5, 0.2, cream[0], cream[1],
                    cream[2]);

    // Toggle positions: the lever up is the switch's first position.
    useFont(cr, fonts.labels, 7.5);
    struct Marks {
        const Place* toggle;
        const char* up;
        const char* down;
    } marks[3] = {{&cpuToggle, "LO", "HI"}, {&cabinetToggle, "OFF", "ON"}, {&stereoToggle, "OFF", "ON"}};
    for (auto& m : marks) {
        double x = m.toggle->x + m.toggle->w + 10;
        centredText(cr, m.up, x, m.toggle->y + 10, 0.4, cream[0], cream[1], cream[2]);
        centredText(cr, m.down, x, m.toggle->y + m.toggle->h - 3, 0.4, cream[0], cream[1], cream[2]);
    }

    // Left: the model line; right: the pilot jewel.
    useFont(cr, fonts.logo, 26);
    centredText(cr, "orm", 110, 306, 0.5, cream[0], cream[1], cream[2]);
    useFont(cr, fonts.labels, 8);
    centredText(cr, "TUBE AMPLIFIER", 110, 324, 1.4, cream[0], cream[1], cream[2]);
    drawJewel(cr, 890, 306);
    useFont(cr, fonts.labels, 8);
    centredText(cr, "PILOT", 890, 340, 1.4, cream[0], cream[1], cream[2]);
}

cairo_surface_t* drawPanel(const Lettering& fonts) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1000, 400);
    cairo_t* cr = cairo_create(surface);
    drawTolex(cr);
    drawGrille(cr, fonts);
    drawPlate(cr, fonts);
    cairo_destroy(cr);
    return surface;
}

// ---------------------------------------------------------------------------------------------
// The chicken-head knob

// The pointer's outline, pointing up from the centre (0, 0): a tapered nose and a round tail.
void chickenHeadPath(cairo_t* cr) {
    cairo_move_to(cr, 0, -29.5);
    cairo_curve_to(cr, 1.2, -25, 5, -14, 8, -6);
    cairo_curve_to(cr, 9.5, -2, 10, 2, 10, 6);
    cairo_arc(cr, 0, 6, 10, 0, pi);
    cairo_curve_to(cr, -10, 2, -9.5, -2, -8, -6);
    cairo_curve_to(cr, -5, -14, -1.2, -25, 0, -29.5);
    cairo_close_path(cr);
}

void drawKnobFrame(cairo_t* cr, double angle) {
    const double cx = 33, cy = 33;
    // Soft shadow of the whole knob on the panel, light from the upper left.
    for (int i = 0; i < 6; ++i) {
        cairo_arc(cr, cx + 1.5, cy + 2.2, 26.5 - i * 0.9 + 3.0, 0, 2 * pi);
        cairo_set_source_rgba(cr, 0, 0, 0, 0.09);
        cairo_fill(cr);
    }
    // The skirt: a round bakelite base with a glossy ring.
    cairo_pattern_t* skirt = cairo_pattern_create_linear(cx - 24, cy - 24, cx + 24, cy + 24);
    cairo_pattern_add_color_stop_rgb(skirt, 0, 0.34, 0.33, 0.32);
    cairo_pattern_add_color_stop_rgb(skirt, 0.5, 0.08, 0.08, 0.08);
    cairo_pattern_add_color_stop_rgb(skirt, 1, 0.02, 0.02, 0.02);
    cairo_arc(cr, cx, cy, 24, 0, 2 * pi);
    cairo_set_source(cr, skirt);
    cairo_fill(cr);
    cairo_pattern_destroy(skirt);
    cairo_pattern_t* top = cairo_pattern_create_radial(cx - 6, cy - 8, 2, cx, cy, 21);
    cairo_pattern_add_color_stop_rgb(top, 0, 0.22, 0.21, 0.20);
    cairo_pattern_add_color_stop_rgb(top, 1, 0.05, 0.05, 0.05);
    cairo_arc(cr, cx, cy, 20.5, 0, 2 * pi);
    cairo_set_source(cr, top);
    cairo_fill(cr);
    cairo_pattern_destroy(top);
    cairo_arc(cr, cx, cy, 23.5, 0, 2 * pi);
    cairo_set_line_width(cr, 1);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.8);
    cairo_stroke(cr);

    // The head: shadow first, then the body lit from the upper left whatever its angle.
    cairo_save(cr);
    cairo_translate(cr, cx + 1.4, cy + 2.0);
    cairo_rotate(cr, angle);
    chickenHeadPath(cr);
    cairo_restore(cr);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.55);
    cairo_fill(cr);

    cairo_save(cr);
    cairo_translate(cr, cx, cy);
    cairo_rotate(cr, angle);
    chickenHeadPath(cr);
    cairo_restore(cr);
    cairo_pattern_t* body = cairo_pattern_create_linear(cx - 22, cy - 22, cx + 22, cy + 22);
    cairo_pattern_add_color_stop_rgb(body, 0, 0.42, 0.41, 0.40);
    cairo_pattern_add_color_stop_rgb(body, 0.45, 0.13, 0.13, 0.13);
    cairo_pattern_add_color_stop_rgb(body, 1, 0.03, 0.03, 0.03);
    cairo_set_source(cr, body);
    cairo_fill_preserve(cr);
    cairo_pattern_destroy(body);
    cairo_set_line_width(cr, 0.9);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.9);
    cairo_stroke(cr);
    // Gloss: a highlight that stays at the upper left, clipped to the head.
    cairo_save(cr);
    cairo_translate(cr, cx, cy);
    cairo_rotate(cr, angle);
    chickenHeadPath(cr);
    cairo_restore(cr);
    cairo_save(cr);
    cairo_clip(cr);
    cairo_pattern_t* gloss = cairo_pattern_create_radial(cx - 7, cy - 7, 0.5, cx - 7, cy - 7, 14);
    cairo_pattern_add_color_stop_rgba(gloss, 0, 1, 1, 1, 0.35);
    cairo_pattern_add_color_stop_rgba(gloss, 1, 1, 1, 1, 0);
    cairo_set_source(cr, gloss);
    cairo_paint(cr);
    cairo_pattern_destroy(gloss);
    cairo_restore(cr);

    // The white index line along the nose, and the centre screw cap.
    cairo_save(cr);
    cairo_translate(cr, cx, cy);
    cairo_rotate(cr, angle);
    cairo_move_to(cr, 0, -26.5);
    cairo_line_to(cr, 0, -9);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_width(cr, 2.4);
    cairo_set_source_rgb(cr, 0.97, 0.96, 0.92);
    cairo_stroke(cr);
    cairo_restore(cr);
    cairo_pattern_t* cap = cairo_pattern_create_radial(cx - 1.2, cy - 1.2, 0.3, cx, cy, 4);
    cairo_pattern_add_color_stop_rgb(cap, 0, 0.45, 0.45, 0.45);
    cairo_pattern_add_color_stop_rgb(cap, 1, 0.06, 0.06, 0.06);
    cairo_arc(cr, cx, cy + 3, 3.2, 0, 2 * pi);
    cairo_set_source(cr, cap);
    cairo_fill(cr);
    cairo_pattern_destroy(cap);
}

cairo_surface_t* drawKnobStrip() {
    const int frames = 101, size = 66;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size * frames);
    cairo_t* cr = cairo_create(surface);
    for (int i = 0; i < frames; ++i) {
        cairo_save(cr);
        cairo_rectangle(cr, 0, i * size, size, size);
        cairo_clip(cr);
        cairo_translate(cr, 0, i * size);
        // 300 degrees, from 7 o'clock (value 0) to 5 o'clock (value 1).
        drawKnobFrame(cr, (-150.0 + 300.0 * i / (frames - 1)) * pi / 180);
        cairo_restore(cr);
    }
    cairo_destroy(cr);
    return surface;
}

// ---------------------------------------------------------------------------------------------
// Switches

void chromeFill(cairo_t* cr, double x0, double y0, double x1, double y1) {
    cairo_pattern_t* chrome = cairo_pattern_create_linear(x0, y0, x1, y1);
    cairo_pattern_add_color_stop_rgb(chrome, 0, 0.97, 0.97, 0.98);
    cairo_pattern_add_color_stop_rgb(chrome, 0.45, 0.62, 0.63, 0.66);
    cairo_pattern_add_color_stop_rgb(chrome, 0.55, 0.45, 0.46, 0.49);
    cairo_pattern_add_color_stop_rgb(chrome, 1, 0.85, 0.86, 0.88);
    cairo_set_source(cr, chrome);
    cairo_fill_preserve(cr);
    cairo_pattern_destroy(chrome);
    cairo_set_line_width(cr, 0.8);
    cairo_set_source_rgba(cr, 0.1, 0.1, 0.12, 0.9);
    cairo_stroke(cr);
}

// A slide switch: chrome bezel, dark slot, an ivory slider at one of three places.
cairo_surface_t* drawSlideSwitch() {
    const int w = 40, h = 20, frames = 3;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h * frames);
    cairo_t* cr = cairo_create(surface);
    for (int i = 0; i < frames; ++i) {
        cairo_save(cr);
        cairo_translate(cr, 0, i * h);
        roundedRectangle(cr, 1.5, 3.0, 37, 15, 3);
        cairo_set_source_rgba(cr, 0, 0, 0, 0.5);
        cairo_fill(cr);
        roundedRectangle(cr, 1.0, 2.0, 37, 15, 3);
        chromeFill(cr, 0, 2, 0, 17);
        roundedRectangle(cr, 3.5, 6.0, 32, 7, 2);
        cairo_set_source_rgb(cr, 0.03, 0.03, 0.03);
        cairo_fill(cr);
        double centre = slidePosition(i);
        roundedRectangle(cr, centre - 4.5 + 0.8, 3.2 + 1.0, 9, 13, 2);
        cairo_set_source_rgba(cr, 0, 0, 0, 0.55);
        cairo_fill(cr);
        roundedRectangle(cr, centre - 4.5, 3.2, 9, 13, 2);
        cairo_pattern_t* ivory = cairo_pattern_create_linear(centre - 4.5, 3, centre + 4.5, 16);
        cairo_pattern_add_color_stop_rgb(ivory, 0, 1.0, 0.98, 0.92);
        cairo_pattern_add_color_stop_rgb(ivory, 1, 0.70, 0.66, 0.56);
        cairo_set_source(cr, ivory);
        cairo_fill_preserve(cr);
        cairo_pattern_destroy(ivory);
        cairo_set_line_width(cr, 0.8);
        cairo_set_source_rgba(cr, 0.2, 0.18, 0.12, 0.9);
        cairo_stroke(cr);
        cairo_set_line_width(cr, 1);
        for (int k = -1; k <= 1; ++k) {  // grip ridges
            cairo_move_to(cr, centre + 2.2 * k, 5.5);
            cairo_line_to(cr, centre + 2.2 * k, 14);
            cairo_set_source_rgba(cr, 0.35, 0.30, 0.22, 0.7);
            cairo_stroke(cr);
        }
        cairo_restore(cr);
    }
    cairo_destroy(cr);
    return surface;
}

// A chrome bat-handle toggle seen from the front: hex nut, and the lever up (frame 0) or down.
cairo_surface_t* drawToggle() {
    const int w = 20, h = 40, frames = 2;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h * frames);
    cairo_t* cr = cairo_create(surface);
    for (int i = 0; i < frames; ++i) {
        cairo_save(cr);
        cairo_translate(cr, 0, i * h);
        const double cx = 10, cy = 20;
        // Hex nut and its shadow.
        for (int pass = 0; pass < 2; ++pass) {
            double o = pass == 0 ? 1.0 : 0;
            for (int k = 0; k < 6; ++k) {
                double a = pi / 6 + k * pi / 3;
                double x = cx + o + 8.6 * std::cos(a), y = cy + o * 1.3 + 8.6 * std::sin(a);
                if (k == 0)
                    cairo_move_to(cr, x, y);
                else
                    cairo_line_to(cr, x, y);
            }
            cairo_close_path(cr);
            if (pass == 0) {
                cairo_set_source_rgba(cr, 0, 0, 0, 0.55);
                cairo_fill(cr);
            } else {
                chromeFill(cr, cx - 8, cy - 8, cx + 8, cy + 8);
            }
        }
        cairo_arc(cr, cx, cy, 4.6, 0, 2 * pi);
        chromeFill(cr, cx + 4, cy + 4, cx - 4, cy - 4);
        // The lever: from the bushing to a round tip, wider towards the end.
        double dir = i == 0 ? -1 : 1;
        double tipY = cy + dir * 15.5;
        cairo_move_to(cr, cx - 1.9 + 1.2, cy + 1.6);
        cairo_line_to(cr, cx - 3.2 + 1.2, tipY + 1.6);
        cairo_line_to(cr, cx + 3.2 + 1.2, tipY + 1.6);
        cairo_line_to(cr, cx + 1.9 + 1.2, cy + 1.6);
        cairo_close_path(cr);
        cairo_arc(cr, cx + 1.2, tipY + 1.6, 3.4, 0, 2 * pi);
        cairo_set_source_rgba(cr, 0, 0, 0, 0.5);
        cairo_fill(cr);
        cairo_move_to(cr, cx - 1.9, cy);
        cairo_line_to(cr, cx - 3.0, tipY);
        cairo_line_to(cr, cx + 3.0, tipY);
        cairo_line_to(cr, cx + 1.9, cy);
        cairo_close_path(cr);
        chromeFill(cr, cx - 3, 0, cx + 3, 0);
        cairo_arc(cr, cx, tipY, 3.4, 0, 2 * pi);
        cairo_pattern_t* ball = cairo_pattern_create_radial(cx - 1.2, tipY - 1.2, 0.3, cx, tipY, 3.6);
        cairo_pattern_add_color_stop_rgb(ball, 0, 1, 1, 1);
        cairo_pattern_add_color_stop_rgb(ball, 1, 0.42, 0.43, 0.46);
        cairo_set_source(cr, ball);
        cairo_fill_preserve(cr);
        cairo_pattern_destroy(ball);
        cairo_set_line_width(cr, 0.7);
        cairo_set_source_rgba(cr, 0.1, 0.1, 0.12, 0.9);
        cairo_stroke(cr);
        cairo_restore(cr);
    }
    cairo_destroy(cr);
    return surface;
}

// The donation button: an amber pill, raised (frame 0) and pressed (frame 1).
cairo_surface_t* drawDonate(const Lettering& fonts) {
    const int w = 92, h = 26, frames = 2;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h * frames);
    cairo_t* cr = cairo_create(surface);
    for (int i = 0; i < frames; ++i) {
        cairo_save(cr);
        cairo_translate(cr, 0, i * h);
        bool pressed = i == 1;
        roundedRectangle(cr, 2, 3, 89, 21.5, 10.5);
        cairo_set_source_rgba(cr, 0, 0, 0, pressed ? 0.35 : 0.55);
        cairo_fill(cr);
        double dy = pressed ? 1 : 0;
        roundedRectangle(cr, 1.5, 1.5 + dy, 88, 21, 10.5);
        cairo_pattern_t* amber = cairo_pattern_create_linear(0, 1.5 + dy, 0, 22.5 + dy);
        if (pressed) {
            cairo_pattern_add_color_stop_rgb(amber, 0, 0.62, 0.42, 0.10);
            cairo_pattern_add_color_stop_rgb(amber, 1, 0.86, 0.64, 0.22);
        } else {
            cairo_pattern_add_color_stop_rgb(amber, 0, 1.00, 0.86, 0.48);
            cairo_pattern_add_color_stop_rgb(amber, 0.5, 0.93, 0.68, 0.20);
            cairo_pattern_add_color_stop_rgb(amber, 1, 0.74, 0.48, 0.10);
        }
        cairo_set_source(cr, amber);
        cairo_fill_preserve(cr);
        cairo_pattern_destroy(amber);
        cairo_set_line_width(cr, 1);
        cairo_set_source_rgb(cr, 0.35, 0.22, 0.05);
        cairo_stroke(cr);
        useFont(cr, fonts.labels, 11.5);
        double textX = 46 - spacedWidth(cr, "DONATE", 1.4) / 2;
        centredText(cr, "DONATE", 46 + 6, 16.2 + dy, 1.4, 0.24, 0.13, 0.02);
        // A small heart ahead of the word.
        double hx = textX + 0.5, hy = 11.8 + dy;
        cairo_move_to(cr, hx, hy + 4.2);
        cairo_curve_to(cr, hx - 6.5, hy - 0.5, hx - 3.0, hy - 5.0, hx, hy - 1.8);
        cairo_curve_to(cr, hx + 3.0, hy - 5.0, hx + 6.5, hy - 0.5, hx, hy + 4.2);
        cairo_set_source_rgb(cr, 0.62, 0.08, 0.06);
        cairo_fill(cr);
        cairo_restore(cr);
    }
    cairo_destroy(cr);
    return surface;
}

// ---------------------------------------------------------------------------------------------
// The application's icon for desktop menus: a chicken-head knob on a cream plate with the name.

cairo_surface_t* drawIcon(const Lettering& fonts) {
    const int size = 128;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size);
    cairo_t* cr = cairo_create(surface);
    // The plate: black tolex edge, cream face.
    roundedRectangle(cr, 4, 4, 120, 120, 20);
    cairo_set_source_rgb(cr, 0.09, 0.09, 0.085);
    cairo_fill(cr);
    cairo_pattern_t* face = cairo_pattern_create_linear(0, 10, 0, 118);
    cairo_pattern_add_color_stop_rgb(face, 0, 0.93, 0.89, 0.78);
    cairo_pattern_add_color_stop_rgb(face, 1, 0.80, 0.75, 0.62);
    roundedRectangle(cr, 10, 10, 108, 108, 15);
    cairo_set_source(cr, face);
    cairo_fill(cr);
    cairo_pattern_destroy(face);
    // The knob, half again its panel size, turned to two o'clock.
    cairo_save(cr);
    cairo_translate(cr, 64 - 33 * 1.5, 50 - 33 * 1.5);
    cairo_scale(cr, 1.5, 1.5);
    drawKnobFrame(cr, 60 * pi / 180);
    cairo_restore(cr);
    // The name, in the panel's logo lettering.
    useFont(cr, fonts.logo, 26);
    cairo_text_extents_t e;
    cairo_text_extents(cr, "orm", &e);
    cairo_move_to(cr, 64 - e.x_advance / 2, 110);
    cairo_set_source_rgb(cr, 0.45, 0.08, 0.06);
    cairo_show_text(cr, "orm");
    cairo_destroy(cr);
    return surface;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: orm-pictures OUTDIR\n");
        return 2;
    }
    std::string directory = std::string(argv[1]) + "/";
    try {
        Fonts fonts;
        Lettering lettering{fonts.load("DejaVuSansCondensed-Bold.ttf"), fonts.load("DejaVuSerif-BoldItalic.ttf")};
        struct Picture {
            const char* file;
            cairo_surface_t* surface;
        } pictures[] = {
            {"orm.png", drawPanel(lettering)},
            {"fender-chicken.png", drawKnobStrip()},
            {"HorizontalSwitch-3P.png", drawSlideSwitch()},
            {"VerticalSwitch.png", drawToggle()},
            {"donate.png", drawDonate(lettering)},
            {"orm-icon.png", drawIcon(lettering)},
        };
        for (auto& picture : pictures) {
            writePng(picture.surface, directory + picture.file);
            cairo_surface_destroy(picture.surface);
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orm-pictures: %s\n", e.what());
        return 1;
    }
    return 0;
}
