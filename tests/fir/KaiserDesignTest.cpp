// The Kaiser window and the designed low-pass, against computations made here in double (the
// power series of I0, the magnitude response on the unit circle) and against scipy.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
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

double magnitude(const std::vector<double>& taps, double relativeFrequency) {
    std::complex<double> sum = 0.0;
    for (size_t k = 0; k < taps.size(); ++k)
        sum += taps[k] * std::polar(1.0, -2.0 * M_PI * relativeFrequency * static_cast<double>(k));
    return std::abs(sum);
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

TEST(KaiserDesign, LowPassMeetsItsSpecification) {
    // Kaiser's estimate of the transition width for N taps and A dB:
    // delta omega = (A - 7.95) / (2.285 (N - 1)).  Pass-band ripple and stop-band level are both
    // 10^(-A/20).  The formulas are empirical; they hold within a fraction of a dB here.
    struct Case {
        int order;
        double fc, a, marginDb;
    };
    // Above 50 dB the window's beta comes from the 21-to-50 dB formula (7.64 instead of 7.86 at
    // 80 dB), which costs about 2 dB of stop band there.
    for (const Case& c : {Case{101, 0.2, 60.0, 1.0}, Case{63, 0.1, 40.0, 0.5}, Case{201, 0.25, 80.0, 2.5}}) {
        const std::vector<double> taps = designedTaps(c.order, c.fc, c.a);
        ASSERT_EQ(taps.size(), static_cast<size_t>(c.order));
        double sum = 0.0;
        for (size_t k = 0; k < taps.size(); ++k) {
            sum += taps[k];
            EXPECT_EQ(taps[k], taps[taps.size() - 1 - k]);  // linear phase
        }
        EXPECT_NEAR(sum, 1.0, 1e-6);
        const double transition = (c.a - 7.95) / (2.285 * (c.order - 1)) / (2.0 * M_PI);
        double ripple = 0.0, stop = 0.0;
        for (double f = 0.0; f <= 0.5; f += 0.0002) {
            const double h = magnitude(taps, f);
            if (f <= c.fc - transition / 2) ripple = std::max(ripple, std::fabs(h - 1.0));
            if (f >= c.fc + transition / 2) stop = std::max(stop, h);
        }
        const double delta = std::pow(10.0, -c.a / 20.0);
        const double stopDb = 20.0 * std::log10(stop);
        EXPECT_LT(ripple, 1.5 * delta);
        EXPECT_LT(stopDb, -c.a + c.marginDb);
        // -6 dB at the corner: a windowed ideal low-pass is half way there.
        EXPECT_NEAR(magnitude(taps, c.fc), 0.5, 0.01);
    }
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
