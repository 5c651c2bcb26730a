// The Kaiser window and the designed low-pass, against the power series of I0 computed here in
// double and against scipy's design.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "engine/Context.h"
#include "filters/Fir.h"

using namespace vrn;

namespace {

// I0(x) = sum over k of ((x/2)^k / k!)^2, summed until the terms stop counting.
double seriesI0(double x) {
    double term = 1.0, sum = 1.0;
    for (int k = 1; k < 500; ++k) {
        term *= (x / 2.0) / k;
        sum += term * term;
        if (term * term < 1e-18 * sum) break;
    }
    return sum;
}

std::vector<double> designedTaps(int order, double corner, double attenuation) {
    Properties p;
    p["Factor"] = "1";
    p["Order"] = std::to_string(order);
    p["RelativeCornerFrequency"] = std::to_string(corner);
    p["Attenuation"] = std::to_string(attenuation);
    auto context = std::make_shared<DSPContext>();
    ResamplingDecimator filter;
    filter.init("d", p, context);
    return std::vector<double>(filter.getCoefficients(), filter.getCoefficients() + filter.getLength());
}

}  // namespace

TEST(KaiserDesign, BesselI0AgainstItsSeries) {
    // The polynomial fits promise 1.6e-7 absolute below 3.75 (I0 >= 1 there) and 1.9e-7 on
    // x^½ e^-x I0(x) >= 0.2 above: 1e-6 relative covers both.
    double worst = 0.0;
    for (double x = 0.0; x <= 30.0; x += 0.05) {
        const double reference = seriesI0(x);
        worst = std::max(worst, std::fabs(kaiser::besselI0(x) - reference) / reference);
        EXPECT_DOUBLE_EQ(kaiser::besselI0(-x), kaiser::besselI0(x));
    }
    EXPECT_LT(worst, 1e-6);
}

TEST(KaiserDesign, MatchesAReferenceDesign) {
    // From scipy 1.10: kaiser_beta(30) and kaiser_beta(45), Kaiser's 21-to-50 dB formula; and
    // firwin(21, 0.2, window=('kaiser', kaiser_beta(40)), fs=1), the windowed ideal low-pass
    // scaled to unity at DC, its first half (the taps are symmetric).
    EXPECT_NEAR(kaiser::beta(30.0), 2.1166248611409806, 1e-12);
    EXPECT_NEAR(kaiser::beta(45.0), 3.975432711887479, 1e-12);
    // At 21 dB and below, beta is 0: the rectangular window.
    EXPECT_EQ(kaiser::window(7, 16, kaiser::beta(21.0)), 1.0f);
    const double half[11] = {-2.31963233e-18, -0.00814278194, -0.00814052703, 0.0123531476, 0.0292058367, -1.07898088e-17,
                             -0.0601909015, -0.0550618254, 0.0888270502, 0.300070338, 0.402159326};
    const std::vector<double> taps = designedTaps(21, 0.2, 40.0);
    ASSERT_EQ(taps.size(), 21u);
    for (size_t k = 0; k < 21; ++k) EXPECT_NEAR(taps[k], half[std::min(k, 20 - k)], 1e-6) << k;
}
