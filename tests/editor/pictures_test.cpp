// The editor's pictures: the committed files are what orm-pictures draws, with the sizes, frame
// counts and alpha the editor relies on.

#include <gtest/gtest.h>

#include <cairo.h>
#include <unistd.h>

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
