// The tube curves A to E and the grid table "yg": regenerated from the stage netlists by
// orm-ampdata and compared with what is committed, then held to the telling rows and features
// they must keep.  The table of target against generated values is printed for the record.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "amp/AmpData.h"
#include "Regenerate.h"

using amp_test::readFile;
using amp_test::regenerate;

namespace {

struct Grid {
    double vinMin, deltaV;
    size_t entries;
};

const Grid kGrids[5] = {{-8, 0.01, 1601}, {-8, 0.02, 5401}, {-8, 0.02, 4401}, {-40, 0.01, 14001}, {-40, 0.01, 14001}};

float at(const std::vector<float>& curve, const Grid& grid, double vin) {
    return curve[static_cast<size_t>(std::lround((vin - grid.vinMin) / grid.deltaV))];
}

}  // namespace

TEST(TubeCurves, CommittedDataEqualsItsGenerator) {
    const std::string source = ORM_SOURCE_DIR;
    for (char c : std::string("abcde"))
        EXPECT_EQ(readFile(source + "/resources/tube_curve_" + c + ".inc"), regenerate(std::string("curve-") + c))
            << "regenerate resources/tube_curve_" << c << ".inc";
    EXPECT_EQ(readFile(source + "/resources/yg.inc"), regenerate("yg")) << "regenerate resources/yg.inc";
}

TEST(TubeCurves, CopiesSizesAndLetters) {
    for (int c = 0; c < 5; ++c) {
        const char letter = static_cast<char>('A' + c);
        auto first = ampdata::tubeCurve(letter);
        auto second = ampdata::tubeCurve(letter);
        ASSERT_EQ(kGrids[c].entries, first->size()) << letter;
        EXPECT_NE(first.get(), second.get());
        EXPECT_EQ(*first, *second);
        for (float v : *first) EXPECT_TRUE(std::isfinite(v)) << letter;
    }
    EXPECT_THROW(ampdata::tubeCurve('F'), std::invalid_argument);
    EXPECT_THROW(ampdata::tubeCurve('a'), std::invalid_argument);
    EXPECT_EQ(1001u, ampdata::gridTableYg()->size());
    EXPECT_NE(ampdata::gridTableYg().get(), ampdata::gridTableYg().get());
}

TEST(TubeCurves, TellingRowsAndFeatures) {
    const double n = NAN;
    struct Row {
        double vin, target[5];
    };
    const Row rows[] = {
        {-40, {n, n, n, 599.0828, 599.0828}},
        {-20, {n, n, n, 578.7496, 578.7495}},
        {-10, {n, n, n, 512.2914, 512.2914}},
        {-8, {260.0, 260.0, 260.0, 486.6667, 486.6666}},
        {-4, {259.9894, 259.402, 259.402, 418.082, 418.082}},
        {-2, {255.1205, 233.7874, 233.7874, 374.6495, 374.6495}},
        {-1, {228.5752, 207.0996, 207.0996, 350.7402, 350.7402}},
        {0, {176.6873, 176.6873, 176.6873, 325.5147, 325.5147}},
        {1, {116.1291, 144.2034, 144.2034, 299.1613, 299.1613}},
        {2, {99.6647, 115.2951, 114.7006, 271.9565, 271.9565}},
        {4, {92.8987, 96.2791, 94.4831, 216.6598, 216.6598}},
        {8, {92.8997, 93.9292, 96.1773, 122.1371, 122.1371}},
        {20, {n, 94.2287, 101.9673, 48.606, 45.7596}},
        {40, {n, 94.7374, 112.3207, 46.2244, 34.3384}},
        {80, {n, 95.7497, 137.5311, 43.7261, 8.6091}},
        {100, {n, 96.2596, n, 42.8223, -30.2877}},
    };
    std::vector<float> curves[5];
    for (int c = 0; c < 5; ++c) curves[c] = *ampdata::tubeCurve(static_cast<char>('A' + c));

    std::printf("   Vin |  A target / generated |  B target / generated |  C target / generated |"
                "  D target / generated |  E target / generated\n");
    for (const Row& row : rows) {
        std::printf("%6g", row.vin);
        for (int c = 0; c < 5; ++c) {
            if (std::isnan(row.target[c])) {
                std::printf(" | %21s", "");
                continue;
            }
            const double value = at(curves[c], kGrids[c], row.vin);
            std::printf(" | %9.4f / %9.4f", row.target[c], value);
            // A and B within 0.01 V; C within 0.05 V except at 80 V (4 V); D and E within 0.1 V.
            double tolerance = c < 2 ? 0.01 : c == 2 ? (row.vin == 80 ? 4.0 : 0.05) : 0.1;
            EXPECT_NEAR(row.target[c], value, tolerance) << static_cast<char>('A' + c) << " at " << row.vin << " V";
        }
        std::printf("\n");
    }

    // Cut-off at exactly 260.0: A at -5.80 V and below, B and C at -7.10 V and below.
    const double thresholds[3] = {-5.80, -7.10, -7.10};
    for (int c = 0; c < 3; ++c) {
        const size_t last = static_cast<size_t>(std::lround((thresholds[c] - kGrids[c].vinMin) / kGrids[c].deltaV));
        for (size_t i = 0; i <= last; ++i) ASSERT_EQ(260.0f, curves[c][i]) << static_cast<char>('A' + c) << " entry " << i;
        EXPECT_LT(curves[c][last + 1], 260.0f) << static_cast<char>('A' + c);
        // The common bias point.
        EXPECT_NEAR(176.6873, at(curves[c], kGrids[c], 0.0), 5e-4) << static_cast<char>('A' + c);
    }
    // A: the lowest value at 3.97 V, then a rise of about a millivolt up to 8 V.
    const size_t lowest = static_cast<size_t>(std::min_element(curves[0].begin(), curves[0].end()) - curves[0].begin());
    EXPECT_NEAR(3.97, kGrids[0].vinMin + kGrids[0].deltaV * static_cast<double>(lowest), 0.05);
    EXPECT_GT(curves[0].back() - curves[0][lowest], 0.0005f);
    EXPECT_LT(curves[0].back() - curves[0][lowest], 0.005f);
    // D and E: the same stage until the grid conducts.
    for (size_t i = 0; i < curves[3].size() && kGrids[3].vinMin + kGrids[3].deltaV * static_cast<double>(i) <= 18.3; ++i)
        ASSERT_NEAR(curves[3][i], curves[4][i], 0.02) << i;
    // D falls from 599 V without a flat start, and keeps falling.
    for (size_t i = 1; i < curves[3].size(); ++i) ASSERT_LT(curves[3][i], curves[3][i - 1]) << i;
    EXPECT_NEAR(599.08, curves[3][0], 0.1);
    // E: below ground at 100 V, with stretches that rise on the way (by more than 0.5 V each).
    EXPECT_LT(at(curves[4], kGrids[4], 100.0), 0.0f);
    int risingStretches = 0;
    for (size_t i = 1, start = 0; i < curves[4].size(); ++i) {
        const bool rising = curves[4][i] > curves[4][i - 1];
        if (rising && start == 0) start = i - 1;
        if (!rising && start != 0) {
            if (curves[4][i - 1] - curves[4][start] > 0.5f) ++risingStretches;
            start = 0;
        }
    }
    EXPECT_GE(risingStretches, 2);
}

TEST(TubeCurves, GridTableYgTellingRows) {
    const std::vector<float> ohms = *ampdata::gridTableYg();
    ASSERT_EQ(1001u, ohms.size());
    auto row = [&](double v) { return ohms[static_cast<size_t>(std::lround(v / 0.02))]; };
    for (double v = 0; v < 1.405; v += 0.02) EXPECT_EQ(1e10f, row(v)) << v;
    std::printf("yg:   Vin |   target / generated (ohm)\n");
    // The onset row within a factor 2, the others within 0.5 %.
    std::printf("%10.2f | %10.6g / %10.6g\n", 1.42, 8312601.0, static_cast<double>(row(1.42)));
    EXPECT_GT(row(1.42), 8312601.0 / 2);
    EXPECT_LT(row(1.42), 8312601.0 * 2);
    const double rows[][2] = {{1.5, 221016}, {2, 24897.4}, {4, 6154.65}, {8, 3541.28}, {16, 2746.63}, {20, 2599.26}};
    for (const auto& r : rows) {
        std::printf("%10.2f | %10.6g / %10.6g\n", r[0], r[1], static_cast<double>(row(r[0])));
        EXPECT_NEAR(r[1], row(r[0]), 0.005 * r[1]) << r[0];
    }
    size_t first = 0;
    while (ohms[first] >= 1e10f) ++first;
    EXPECT_EQ(71u, first);  // 1.42 V
    for (size_t i = first + 1; i < ohms.size(); ++i) EXPECT_LT(ohms[i], ohms[i - 1]) << i;
}
