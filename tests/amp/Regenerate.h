#pragma once
// Runs the data generator into a temporary file, so a test can compare what it writes with what
// is committed.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace amp_test {

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::string regenerate(const std::string& what) {
    const std::string path = ::testing::TempDir() + "orm-ampdata-" + what + ".inc";
    const std::string command = std::string(ORM_AMPDATA_PATH) + " " + what + " " + path;
    EXPECT_EQ(0, std::system(command.c_str())) << command;
    const std::string text = readFile(path);
    std::remove(path.c_str());
    return text;
}

}  // namespace amp_test
