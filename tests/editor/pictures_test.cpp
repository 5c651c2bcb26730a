// The editor's pictures: the committed files are what orm-pictures draws, with the sizes, frame
// counts and alpha the editor relies on, and the knob strip turns as a real knob does.

#include <gtest/gtest.h>

#include <cairo.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::vector<unsigned char> readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

const fs::path resources = fs::path(ORM_SOURCE_DIR) / "resources";

struct Expected {
    const char* file;
    int width, frameHeight, frames;
} const pictures[] = {
    {"orm.png", 1000, 400, 1},
    {"fender-chicken.png", 66, 66, 101},
    {"HorizontalSwitch-3P.png", 40, 20, 3},
    {"VerticalSwitch.png", 20, 40, 2},
    {"donate.png", 92, 26, 2},
    {"orm-icon.png", 128, 128, 1},  // orm-jack's icon in desktop menus
};

}  // namespace

TEST(Pictures, CommittedFilesAreWhatTheGeneratorDrawsInTheEditorsSizes) {
    fs::path directory = fs::temp_directory_path() / ("orm-pictures-" + std::to_string(::getpid()));
    fs::create_directories(directory);
    std::string command = std::string(ORM_PICTURES_PATH) + " " + directory.string();
    ASSERT_EQ(std::system(command.c_str()), 0);
    for (const auto& picture : pictures) {
        SCOPED_TRACE(picture.file);
        auto committed = readFile(resources / picture.file);
        // cairo, FreeType and zlib are deterministic on one machine image: the very same bytes.
        EXPECT_TRUE(committed == readFile(directory / picture.file)) << "differs from the generator's output";
        cairo_surface_t* png = cairo_image_surface_create_from_png((resources / picture.file).c_str());
        EXPECT_EQ(cairo_image_surface_get_format(png), CAIRO_FORMAT_ARGB32);  // with alpha
        EXPECT_EQ(cairo_image_surface_get_width(png), picture.width);
        EXPECT_EQ(cairo_image_surface_get_height(png), picture.frameHeight * picture.frames);
        cairo_surface_destroy(png);
    }
    fs::remove_all(directory);
}

TEST(Pictures, KnobPointerSweepsThreeHundredDegrees) {
    // The white index line lies along the pointer: frame i points at -150 + 3 i degrees from
    // straight up.  Look for it 19 pixels from the centre in each frame, and check that the
    // other directions show no such white (the lit body stays well below it).
    cairo_surface_t* strip = cairo_image_surface_create_from_png((resources / "fender-chicken.png").c_str());
    ASSERT_EQ(cairo_surface_status(strip), CAIRO_STATUS_SUCCESS);
    cairo_surface_flush(strip);
    const unsigned char* data = cairo_image_surface_get_data(strip);
    int stride = cairo_image_surface_get_stride(strip);
    auto brightness = [&](int frame, double angleDegrees, double radius) {
        double a = angleDegrees * M_PI / 180;
        // Pixel i covers [i, i + 1) in drawing coordinates.
        int x = int(std::floor(33 + radius * std::sin(a))), y = int(std::floor(33 - radius * std::cos(a)));
        uint32_t p = *reinterpret_cast<const uint32_t*>(data + size_t(frame * 66 + y) * stride + size_t(x) * 4);
        return ((p >> 16 & 255) + (p >> 8 & 255) + (p & 255)) / 3;
    };
    for (int frame = 0; frame <= 100; frame += 5) {
        double angle = -150.0 + 3.0 * frame;
        EXPECT_GT(brightness(frame, angle, 19), 200u) << "frame " << frame;
        EXPECT_LT(brightness(frame, angle + 180, 12), 160u) << "frame " << frame;
        EXPECT_LT(brightness(frame, angle + 90, 19), 160u) << "frame " << frame;
    }
    // Frame corners stay clear, so the panel shows around the knob.
    uint32_t corner = *reinterpret_cast<const uint32_t*>(data + size_t(50 * 66) * stride);
    EXPECT_EQ(corner >> 24, 0u);
    cairo_surface_destroy(strip);
}
