// The text forms of property values and the shared helpers.

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

#include "engine/Types.h"
#include "support/TestSupport.h"

using namespace vrn;

TEST(TextForms, NumbersAreReadLikeStrtodAndStrtol) {
    const struct {
        const char* text;
        float scalar;  // narrowed from the double strtod reads, not parsed as float
        int integer;
    } cases[] = {
        {"0.25", 0.25f, 0}, {"  -1.5e3", -1500.0f, -1}, {"2.5V", 2.5f, 2}, {"abc", 0.0f, 0},
        {"", 0.0f, 0}, {"0.1", static_cast<float>(0.1), 0}, {" 12abc", 12.0f, 12}, {"-7.5", -7.5f, -7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.scalar, toScalar(c.text));
        EXPECT_EQ(c.integer, toInt(c.text));
    }
}

TEST(TextForms, ListsAreCutAtDelimitersWithEmptyPiecesDropped) {
    const std::pair<const char*, std::vector<scalar>> cases[] = {
        {"1||2|", {1, 2}}, {"|", {}}, {"", {}}, {"0.5|-1|x", {0.5f, -1, 0}}};
    auto values = std::make_shared<std::vector<scalar>>(3, 9.0f);
    for (const auto& [text, expected] : cases) {
        parseScalars(text, "|", values);
        EXPECT_EQ(expected, *values) << text;
    }
}

// A host with a decimal-comma locale must get the same numbers.
TEST(TextForms, NumbersIgnoreTheProcessLocale) {
    const char* chosen = nullptr;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
        if (!chosen && std::setlocale(LC_ALL, name)) chosen = name;
    if (!chosen) GTEST_SKIP() << "no decimal-comma locale installed";
    EXPECT_EQ(0.0, std::atof("0.5")) << "the locale should stop atof at the decimal point";
    EXPECT_FLOAT_EQ(0.5f, toScalar("0.5"));
    EXPECT_DOUBLE_EQ(1250.75, parseDouble("1250.75"));
    auto values = std::make_shared<std::vector<scalar>>();
    parseScalars("0.25|1.5", "|", values);
    EXPECT_EQ((std::vector<scalar>{0.25f, 1.5f}), *values);
    EXPECT_EQ("0.5", toString(0.5));
    std::setlocale(LC_ALL, "C");
}
