// orm-jack's settings file: what reads back, written whole or not at all, and what counts as
// damaged (defaults, one line of warning, the file kept aside).  Where the file lives and its use
// by the running program: orm_jack_test.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tools/orm-jack/Settings.h"

namespace fs = std::filesystem;
using namespace orm_jack;

namespace {

const std::vector<std::string> names = {"Volume", "Feedback", "Output", "Oversamp", "Cabinet", "CPU", "Input", "Stereo"};

class SettingsFile : public ::testing::Test {
protected:
    void SetUp() override {
        directory = fs::temp_directory_path() / ("orm-jack-settings-" + std::to_string(getpid()));
        fs::remove_all(directory);
        path = (directory / "orm" / "orm-jack.conf").string();
    }
    void TearDown() override { fs::remove_all(directory); }
    void write(const std::string& text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }
    fs::path directory;
    std::string path;
};

TEST_F(SettingsFile, WhatIsSavedReadsBack) {
    Settings saved;
    saved.parameters = {{"Volume", 0.25}, {"Oversamp", 1.0}, {"Stereo", 0.0}, {"Input", 0.123456789}};
    saved.connections = {{"in_1", "system:capture_1"}, {"in_2", "system:capture_1"}, {"out_1", "a b:c=d"}};
    std::string error, warning;
    ASSERT_TRUE(saveSettings(path, saved, error)) << error;
    Settings read = loadSettings(path, names, warning);
    EXPECT_TRUE(warning.empty()) << warning;
    EXPECT_TRUE(read.loaded);
    EXPECT_EQ(read.parameters, saved.parameters);  // %.9g keeps every float and these doubles
    EXPECT_EQ(read.connections, saved.connections);
    // Nothing is left beside it: the temporary file was renamed.
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(path).parent_path()), fs::directory_iterator()), 1);
}

// A missing file: orm_jack_test's first run.
TEST_F(SettingsFile, DamagedGivesDefaultsAndOneLine) {
    // Settings are written by orm-jack only; a line it would never write means the file was
    // edited or damaged, whatever the fault.
    struct Case {
        const char* what;
        std::string text;
    } const cases[] = {
        {"not NAME=VALUE", "Volume=0.5\nVolume 0.5\n"},
        {"value above 1", "Volume=1.5\n"},
        {"unknown name", "Treble=0.5\n"},
        {"binary", std::string("\x89PNG\r\n\x1a\n\0\0\0", 11)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        write(c.text);
        std::string warning;
        Settings read = loadSettings(path, names, warning);
        EXPECT_FALSE(read.loaded);
        EXPECT_TRUE(read.parameters.empty());
        EXPECT_TRUE(read.connections.empty());
        EXPECT_NE(warning.find("damaged"), std::string::npos) << warning;
        EXPECT_EQ(warning.find('\n'), std::string::npos);
        std::ifstream kept(path + ".damaged", std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), c.text);
    }
    // Comments and blank lines are fine, and an empty file is a valid one.
    write("# comment\n\nVolume=0\n");
    std::string warning;
    Settings read = loadSettings(path, names, warning);
    EXPECT_TRUE(read.loaded) << warning;
    ASSERT_EQ(read.parameters.size(), 1u);
    write("");
    EXPECT_TRUE(loadSettings(path, names, warning).loaded);
}

}  // namespace
