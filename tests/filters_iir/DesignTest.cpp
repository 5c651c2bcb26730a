// The filter design against its worked values and against independent computations: the
// magnitude of the produced coefficients on the unit circle, the analytic Butterworth response,
// the Bessel group delay.

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "engine/Exceptions.h"
#include "filters/FilterDesign.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using namespace vrn::filterdesign;

namespace {

constexpr double kPi = 3.14159265358979323846;

std::shared_ptr<IirDesignContext> run(Options family, uint64_t order, double fc, bool matchedZ = false) {
    auto context = std::make_shared<IirDesignContext>(family, LOWPASS, order, fc);
    if (matchedZ) context->options.set(MATCHED_Z);
    design(context);
    return context;
}

std::string constructorMessage(Options family, uint64_t order, double fc) {
    try {
        IirDesignContext context(family, LOWPASS, order, fc);
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "";
}

// The core's failure for a request, as "type: text".
std::string coreFailure(const CoreRequest& request) {
    std::vector<scalar> a, b;
    try {
        designCore(request, a, b);
    } catch (const std::out_of_range& e) {
        return std::string("out_of_range: ") + e.what();
    } catch (const std::invalid_argument& e) {
        return std::string("invalid_argument: ") + e.what();
    } catch (const std::domain_error& e) {
        return std::string("domain_error: ") + e.what();
    } catch (const std::runtime_error& e) {
        return std::string("runtime_error: ") + e.what();
    }
    return "";
}

CoreRequest request(int options, int order, double alpha1, double alpha2 = 0) {
    CoreRequest r;
    r.options = options;
    r.order = order;
    r.alpha1 = alpha1;
    r.alpha2 = alpha2;
    return r;
}

}  // namespace

TEST(FilterDesign, ButterworthWorkedValues) {
    struct Case {
        uint64_t order;
        double fc;
        std::vector<scalar> a, b;
    };
    const std::vector<Case> cases = {
        {2, 0.15625, {-0.69973803f, 0.25949518f}, {0.13993929f, 0.27987857f, 0.13993929f}},
        {2, 20000.0 / 88200.0, {-0.17124139f, 0.17676137f}, {0.25137999f, 0.50275999f, 0.25137999f}},
        {1, 0.1, {-0.50952545f}, {0.24523728f, 0.24523728f}},
        {3, 0.1, {-1.76004188f, 1.18289326f, -0.27805992f}, {0.01809893f, 0.05429680f, 0.05429680f, 0.01809893f}},
    };
    double worst = 0;
    for (const Case& c : cases) {
        auto context = run(BUTTERWORTH, c.order, c.fc);
        ASSERT_EQ(context->a->size(), c.a.size());
        ASSERT_EQ(context->b->size(), c.b.size());
        // The worked values carry 8 decimals.
        for (size_t k = 0; k < c.a.size(); ++k) {
            EXPECT_NEAR((*context->a)[k], c.a[k], 1e-7) << c.order << " a" << k;
            worst = std::max(worst, std::fabs(double((*context->a)[k]) - c.a[k]));
        }
        for (size_t k = 0; k < c.b.size(); ++k) {
            EXPECT_NEAR((*context->b)[k], c.b[k], 1e-7) << c.order << " b" << k;
            worst = std::max(worst, std::fabs(double((*context->b)[k]) - c.b[k]));
        }
    }
    std::printf("[ figures  ] four Butterworth worked designs: worst coefficient difference %.3g\n", worst);
}

TEST(FilterDesign, ButterworthMagnitudeOnTheUnitCircle) {
    // Bilinear with pre-warping gives exactly |H|^2 = 1 / (1 + (tan(pi f) / tan(pi fc))^(2N)).
    // High orders at corners near 0 or 0.5 crowd their poles, and 32-bit direct form coefficients
    // cannot hold them (order 10 at 0.02 is off by tens of dB): those corners are checked to order 3.
    double worstCorner = 0, worstShape = 0, worstDc = 0;
    for (double fc : {0.02, 0.1, 0.15625, 0.208333, 0.3, 0.45}) {
        const uint64_t highest = (fc < 0.05 || fc > 0.4) ? 3 : 10;
        for (uint64_t order = 1; order <= highest; ++order) {
            auto c = run(BUTTERWORTH, order, fc);
            const double corner = ormtest::magnitudeDb(*c->a, *c->b, fc);
            worstCorner = std::max(worstCorner, std::fabs(corner + 10 * std::log10(2.0)));
            worstDc = std::max(worstDc, std::fabs(ormtest::magnitudeDb(*c->a, *c->b, 0.0)));
            for (double f = 0.005; f < 0.5; f += 0.005) {
                const double ratio = std::tan(kPi * f) / std::tan(kPi * fc);
                const double exact = -10 * std::log10(1 + std::pow(ratio, 2.0 * order));
                if (exact < -60) continue;
                worstShape = std::max(worstShape, std::fabs(ormtest::magnitudeDb(*c->a, *c->b, f) - exact));
            }
        }
    }
    std::printf("[ figures  ] Butterworth orders 1-10 (1-3 at 0.02 and 0.45), six corners: worst |corner + 3.0103 dB| %.3g dB, "
                "worst |DC| %.3g dB, worst deviation from the analytic response above -60 dB %.3g dB\n",
                worstCorner, worstDc, worstShape);
    // What is left is the rounding of the coefficients to 32 bits.
    EXPECT_LT(worstCorner, 0.01);
    EXPECT_LT(worstDc, 0.01);
    EXPECT_LT(worstShape, 0.01);

    // One second-order section as the resamplers use it: -3.01 dB at the corner, 12 dB per
    // octave far above it in the warped frequency.
    auto c = run(BUTTERWORTH, 2, 0.15625);
    EXPECT_NEAR(ormtest::magnitudeDb(*c->a, *c->b, 0.15625), -3.0103, 1e-4);
    EXPECT_NEAR(ormtest::magnitudeDb(*c->a, *c->b, 0.0), 0.0, 1e-5);
    auto low = run(BUTTERWORTH, 4, 0.005);
    const double octave = ormtest::magnitudeDb(*low->a, *low->b, 0.08) - ormtest::magnitudeDb(*low->a, *low->b, 0.16);
    EXPECT_NEAR(octave, 4 * 6.02 + 20 * std::log10(std::pow(std::tan(kPi * 0.16) / std::tan(kPi * 0.08) / 2, 4)), 0.05);
}

TEST(FilterDesign, BesselHasFlatGroupDelay) {
    for (bool matched : {false, true}) {
        for (uint64_t order : {2, 4, 6}) {
            const double fc = 0.05;
            auto bessel = run(BESSEL, order, fc, matched);
            auto butterworth = run(BUTTERWORTH, order, fc, matched);
            const double d0 = ormtest::groupDelay(*bessel->a, *bessel->b, 0.001);
            const double b0 = ormtest::groupDelay(*butterworth->a, *butterworth->b, 0.001);
            double besselSpread = 0, butterworthSpread = 0;
            for (double f = 0.001; f <= 0.5 * fc; f += 0.001) {
                besselSpread = std::max(besselSpread, std::fabs(ormtest::groupDelay(*bessel->a, *bessel->b, f) / d0 - 1));
                butterworthSpread = std::max(
                    butterworthSpread, std::fabs(ormtest::groupDelay(*butterworth->a, *butterworth->b, f) / b0 - 1));
            }
            std::printf("[ figures  ] order %d %s: group delay spread up to fc/2: Bessel %.2f %%, Butterworth %.2f %%\n",
                        static_cast<int>(order), matched ? "matched z" : "bilinear", 100 * besselSpread,
                        100 * butterworthSpread);
            // A maximally flat delay, well below Butterworth's.  The analog second-order prototype
            // 3 / (s^2 + 3 s + 3) itself loses 2.0 % of its delay at half its -3 dB frequency;
            // higher orders stay within 1 %.
            EXPECT_LT(besselSpread, order == 2 ? 0.025 : 0.01);
            EXPECT_LT(besselSpread, 0.5 * butterworthSpread);
            EXPECT_NEAR(ormtest::magnitudeDb(*bessel->a, *bessel->b, 0.0), 0.0, 0.01);
        }
    }
    // Matched z adds no zeros at z = -1: b has one non-zero entry.
    auto c = run(BESSEL, 4, 0.1, true);
    ASSERT_EQ(c->b->size(), 5u);
    EXPECT_GT((*c->b)[0], 0.0f);
    for (size_t k = 1; k < 5; ++k) EXPECT_EQ((*c->b)[k], 0.0f);
    EXPECT_EQ(c->a->size(), 4u);
}

TEST(FilterDesign, OtherBandsOfTheCore) {
    using namespace core;
    std::vector<scalar> a, b, lowA, lowB;
    // A Butterworth high-pass has the denominator of the low-pass at 0.5 - fc with alternating
    // signs (z -> -z).  Its gain at DC is 0, so the DC normalisation leaves b unusable.
    designCore(request(kButterworth | 0x440 | kOrder, 3, 0.1), a, b);
    designCore(request(kButterworth | 0x420 | kOrder, 3, 0.4), lowA, lowB);
    for (size_t k = 0; k < 3; ++k) EXPECT_NEAR(a[k], (k % 2 == 0 ? -1 : 1) * lowA[k], 1e-6) << k;

    // Band-stop: unity at DC and Nyquist, a zero at the warped centre.
    designCore(request(kButterworth | 0x500 | kOrder, 2, 0.1, 0.2), a, b);
    ASSERT_EQ(a.size(), 4u);
    ASSERT_EQ(b.size(), 5u);
    const double centre = std::atan(std::sqrt(std::tan(kPi * 0.1) * std::tan(kPi * 0.2))) / kPi;
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.0), 0.0, 1e-4);
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.5), 0.0, 1e-3);
    EXPECT_LT(std::abs(ormtest::response(a, b, centre)), 1e-3);
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.1), -3.0103, 0.01);
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.2), -3.0103, 0.01);

    // Chebyshev, 1 dB ripple: the pass band swings between 0 and -1 dB, -1 dB at the corner.
    CoreRequest cheby = request(kChebyshev | 0x420 | kOrder, 4, 0.1);
    cheby.ripple = -1.0;
    designCore(cheby, a, b);
    double lowest = 0, highest = -100;
    for (double f = 0; f <= 0.1; f += 0.001) {
        const double m = ormtest::magnitudeDb(a, b, f) - ormtest::magnitudeDb(a, b, 0);
        lowest = std::min(lowest, m);
        highest = std::max(highest, m);
    }
    // Even order: DC sits at the bottom of the ripple, and the peaks are 1 dB above it.
    EXPECT_NEAR(highest, 1.0, 0.01);
    EXPECT_NEAR(lowest, 0.0, 0.01);

    // Notch resonator: unity at DC, nothing at its frequency.
    CoreRequest notch = request(kResonator | kBandStop | kCornerFrequency, 0, 0.05);
    notch.qfactor = 5;
    designCore(notch, a, b);
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.0), 0.0, 1e-5);
    EXPECT_LT(std::abs(ormtest::response(a, b, 0.05)), 1e-5);
    // All-pass resonator: unit magnitude everywhere.
    CoreRequest allpass = request(kResonator | kAllPass | kCornerFrequency, 0, 0.05);
    allpass.qfactor = 5;
    designCore(allpass, a, b);
    for (double f = 0; f < 0.5; f += 0.01) EXPECT_NEAR(std::abs(ormtest::response(a, b, f)), 1.0, 1e-5) << f;

    // Extra zeros at 0.25 on a low-pass: a null there, still unity at DC.
    CoreRequest extra = request(kButterworth | 0x420 | kOrder | kExtraZeros, 2, 0.1);
    extra.alphaZ = 0.25;
    designCore(extra, a, b);
    EXPECT_EQ(a.size(), 4u);
    EXPECT_NEAR(ormtest::magnitudeDb(a, b, 0.0), 0.0, 1e-5);
    EXPECT_LT(std::abs(ormtest::response(a, b, 0.25)), 1e-5);

    // Pole selection keeps only the masked candidates.
    CoreRequest masked = request(kButterworth | 0x420 | kOrder | kPoleMask, 3, 0.1);
    masked.polemask = 0x2;
    designCore(masked, a, b);
    EXPECT_EQ(a.size(), 1u);  // the real pole alone
}

TEST(FilterDesign, Failures) {
    EXPECT_EQ(constructorMessage(BIQUAD, 2, 0.1),
              "IirDesignContext: family must be one of the following: BESSEL, BUTTERWORTH, CHEBYSHEV.");
    EXPECT_EQ(constructorMessage(CHEBYSHEV, 2, 0.1), "IirDesignContext: ripple must be less than zero.");
    EXPECT_EQ(constructorMessage(BUTTERWORTH, 2, 0.5), "IirDesignContext: fc1 must be (0, 0.5).");
    EXPECT_EQ(constructorMessage(BUTTERWORTH, 2, 0.0), "IirDesignContext: fc1 must be (0, 0.5).");
    EXPECT_EQ(constructorMessage(BUTTERWORTH, 0, 0.1), "DesignContext: Invalid filter order: 0");

    // Order 11 passes the constructor and fails in the core; the results stay as they were.
    auto context = std::make_shared<IirDesignContext>(BUTTERWORTH, LOWPASS, 11, 0.1);
    EXPECT_THROW(design(context), std::out_of_range);
    EXPECT_FALSE(context->a);
    try {
        design(context);
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "filter order out of range");
    }

    using namespace core;
    EXPECT_EQ(coreFailure(request(0x420 | kOrder, 2, 0.1)), "invalid_argument: missing filter design method");
    EXPECT_EQ(coreFailure(request(kBessel | kButterworth | 0x420 | kOrder, 2, 0.1)),
              "invalid_argument: missing filter design method");
    EXPECT_EQ(coreFailure(request(kResonator | kCornerFrequency, 0, 0.1)), "invalid_argument: missing resonator type");
    EXPECT_EQ(coreFailure(request(kResonator | kBandPass | kMatchedZ | kCornerFrequency, 0, 0.1)),
              "invalid_argument: options incompatible with 2-pole resonator filter");
    EXPECT_EQ(coreFailure(request(kProportionalIntegrator | 0x420 | kOrder, 1, 0.1)),
              "invalid_argument: options incompatible with proportional integrator");
    EXPECT_EQ(coreFailure(request(kProportionalIntegrator | kCornerFrequency | kOrder, 2, 0.1)),
              "out_of_range: proportional integrator allows only order of 1");
    EXPECT_EQ(coreFailure(request(kButterworth | kCornerFrequency | kOrder, 2, 0.1)),
              "invalid_argument: missing filter type");
    EXPECT_EQ(coreFailure(request(kButterworth | 0x620 | kOrder, 2, 0.1)),
              "invalid_argument: allpass characteristic avaialable only with 2-pole resonator");
    EXPECT_EQ(coreFailure(request(kButterworth | 0x420, 2, 0.1)), "invalid_argument: missing filter order");
    EXPECT_EQ(coreFailure(request(kButterworth | 0x420 | kOrder, 0, 0.1)), "out_of_range: filter order out of range");
    CoreRequest masked = request(kButterworth | 0x420 | kOrder | kPoleMask, 2, 0.1);
    masked.polemask = 0x4;
    EXPECT_EQ(coreFailure(masked), "out_of_range: selected poles out of range");
    EXPECT_EQ(coreFailure(request(kButterworth | kLowPass | kOrder, 2, 0.1)),
              "invalid_argument: missing normalized corner frequency");
    EXPECT_EQ(coreFailure(request(kChebyshev | 0x420 | kOrder, 2, 0.1)), "domain_error: Chebyshev ripple must be < 0");
}
