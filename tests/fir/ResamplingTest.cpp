// The Kaiser-designed resampling filters: their checks in order and their taps.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/Context.h"
#include "filters/Fir.h"

#include "tests/filters_iir/Reference.h"

using namespace vrn;

namespace {

using Changes = std::initializer_list<std::pair<const char*, const char*>>;

// The usual properties with the given changes (an empty value erases the key).
Properties resamplingProperties(Changes changes = {}) {
    Properties p;
    p["RelativeCornerFrequency"] = "0.4";
    p["Order"] = "31";
    p["Factor"] = "4";
    p["Attenuation"] = "60";
    for (const auto& [key, value] : changes) {
        if (*value) p[key] = value;
        else p.erase(key);
    }
    return p;
}

// The message a filter of type T fails to initialise with, "" when it initialises.
template <typename T>
std::string initMessage(Changes changes) {
    Properties p = resamplingProperties(changes);
    auto context = std::make_shared<DSPContext>();
    return orm_test::messageOf([&] { T().init("r", p, context); });
}

}  // namespace

TEST(ResamplingFilters, PropertyChecksInOrder) {
    using Up = ResamplingUpsampler;
    using Down = ResamplingDecimator;
    // The checks at their limits.
    const std::pair<std::string, const char*> cases[] = {
        {initMessage<Up>({{"RelativeCornerFrequency", "1"}}),
         "ResamplingUpsampler: RelativeCornerFrequency must be between 0 and 1. RelativeCornerFrequency=1"},
        {initMessage<Down>({{"RelativeCornerFrequency", ""}, {"AbsoluteCornerFrequency", "-0.001"}}),
         "ResamplingDecimator: AbsoluteCornerFrequency must be greater than 0. AbsoluteCornerFrequency=-0.001"},
        {initMessage<Up>({{"Attenuation", "1"}}), "ResamplingUpsampler: Attenuation must be greater than 1. Attenuation=1"},
        {initMessage<Up>({{"Attenuation", "1.001"}, {"Order", "1"}}), ""},
        {initMessage<Down>({{"RelativeCornerFrequency", ""}, {"AbsoluteCornerFrequency", "0"}}), ""},
    };
    for (const auto& [actual, expected] : cases) EXPECT_EQ(actual, expected);
}

TEST(ResamplingFilters, DesignedTapsAndTheAbsoluteCorner) {
    auto context = std::make_shared<DSPContext>();
    // Each phase of the upsampler sums to about 1: every output sample gets unit gain at DC.
    // An even order doubles the centre tap, which leaves a floor under the stop band and so
    // a larger spread between the phases.  The order is rounded up to whole phases in the
    // caller's map.
    for (const auto& order : {std::make_pair("63", 2e-3), std::make_pair("64", 0.03)}) {
        Properties q = resamplingProperties({{"Order", order.first}, {"RelativeCornerFrequency", "0.45"}});
        ResamplingUpsampler upsampler;
        upsampler.init("u", q, context);
        EXPECT_EQ(q["Order"], "64");
        EXPECT_EQ(upsampler.getLength(), 64u);
        for (size_t phase = 0; phase < 4; ++phase) {
            double phaseSum = 0.0;
            for (size_t k = phase; k < 64; k += 4) phaseSum += upsampler.getCoefficients()[k];
            EXPECT_NEAR(phaseSum, 1.0, order.second) << "order " << order.first << " phase " << phase;
        }
    }

    // An absolute corner waits for the rate; the decimator divides by the factor the same way,
    // although its rate is already the high one.
    Properties p = resamplingProperties({{"RelativeCornerFrequency", ""}, {"AbsoluteCornerFrequency", "10000"}, {"Factor", "2"}});
    ResamplingUpsampler up;
    up.init("u", p, context);
    EXPECT_EQ(up.getLength(), 0u);
    up.setSamplingRate(48000.0f);
    EXPECT_FLOAT_EQ(up.getSettings().relativeCorner, 10000.0f / 48000.0f / 2.0f);
    EXPECT_EQ(up.getLength(), 32u);
    ResamplingDecimator down;
    p["Order"] = "31";
    down.init("d", p, context);
    down.setSamplingRate(96000.0f);
    EXPECT_FLOAT_EQ(down.getSettings().relativeCorner, 10000.0f / 96000.0f / 2.0f);
    EXPECT_EQ(down.getLength(), 31u);
}
