// The text forms of property values and the shared helpers.

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <locale>

#include "engine/Exceptions.h"
#include "engine/Types.h"
#include "support/TestSupport.h"

using namespace vrn;

TEST(TextForms, ScalarsAndIntsAreReadLikeAtofAndStrtol) {
    EXPECT_FLOAT_EQ(0.25f, toScalar("0.25"));
    EXPECT_FLOAT_EQ(-1.5e3f, toScalar("  -1.5e3"));
    EXPECT_FLOAT_EQ(2.5f, toScalar("2.5V"));  // trailing rubbish ignored
    EXPECT_EQ(0.0f, toScalar("abc"));         // unparsable: 0, no failure
    EXPECT_EQ(0.0f, toScalar(""));
    EXPECT_EQ(static_cast<float>(0.1), toScalar("0.1"));  // narrowed from double, not parsed as float
    EXPECT_EQ(42, toInt("42"));
    EXPECT_EQ(-7, toInt("-7.9"));
    EXPECT_EQ(0, toInt("x1"));
    EXPECT_EQ(12, toInt(" 12abc"));
}

TEST(TextForms, OnlyTheExactWordTrueIsTrue) {
    EXPECT_TRUE(toBool("true"));
    EXPECT_FALSE(toBool("1"));
    EXPECT_FALSE(toBool("True"));
    EXPECT_FALSE(toBool("true "));
    EXPECT_FALSE(toBool(""));
    EXPECT_EQ("a b", toText("a b"));
}

TEST(TextForms, ListsAreCutAtBarsWithEmptyPiecesDropped) {
    auto values = std::make_shared<std::vector<scalar>>(3, 9.0f);
    parseScalars("1||2|", "|", values);
    EXPECT_EQ((std::vector<scalar>{1.0f, 2.0f}), *values);
    parseScalars("|", "|", values);
    EXPECT_TRUE(values->empty());
    parseScalars("", "|", values);
    EXPECT_TRUE(values->empty());
    parseScalars("0.5|-1|x", "|", values);
    EXPECT_EQ((std::vector<scalar>{0.5f, -1.0f, 0.0f}), *values);

    auto words = std::make_shared<std::vector<std::string>>();
    parseWords("Off__1_2", "_", words);
    EXPECT_EQ((std::vector<std::string>{"Off", "1", "2"}), *words);
}

TEST(TextForms, GetPropertyThrowsThePreparedFailureOrConverts) {
    Properties properties;
    properties["Gain"] = "0.5";
    scalar gain = 0;
    getProperty(properties, "Gain", gain, toScalar, InvalidArgumentException("unused"));
    EXPECT_FLOAT_EQ(0.5f, gain);
    int count = 3;
    EXPECT_VRN_MESSAGE(getProperty(properties, "Count", count, toInt, VRNException("Count is not defined.")),
                       VRNException, "Count is not defined.");
    EXPECT_EQ(3, count);
    EXPECT_THROW(getProperty(properties, "Count", count, toInt, InvalidArgumentException("x")), InvalidArgumentException);
}

// A host with a decimal-comma locale must get the same numbers.
TEST(TextForms, NumbersIgnoreTheProcessLocale) {
    const char* locales[] = {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"};
    const char* chosen = nullptr;
    for (const char* name : locales)
        if (std::setlocale(LC_ALL, name)) {
            chosen = name;
            break;
        }
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

TEST(Exceptions, CarryTheirTextAndKeepTheirFamily) {
    try {
        throw InvalidArgumentException(std::string("bad port"));
    } catch (const VRNException& error) {
        EXPECT_EQ("bad port", error.getMessage());
    }
    try {
        throw OperationNotSupportedException("no");
    } catch (const VRNException& error) {
        EXPECT_EQ("no", error.getMessage());
    }
    EXPECT_FALSE((std::is_base_of<std::exception, VRNException>::value));
}
