// The filter design against its worked values and against independent computations: reference
// designs from scipy for every family, band and mapping, and the magnitude of the produced
// coefficients on the unit circle against the analytic Butterworth response.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "engine/Exceptions.h"
#include "filters/FilterDesign.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using namespace vrn::filterdesign;
using ormtest::magnitudeDb;
using ormtest::response;

namespace {

constexpr double kPi = 3.14159265358979323846;

// The front-end designs low-passes only and refuses Chebyshev (its ripple is set after the
// constructor's check), so other families and bands are switched on in the options afterwards.
std::shared_ptr<IirDesignContext> run(Options family, uint64_t order, double fc, bool matchedZ = false,
                                      Options band = LOWPASS, double fc2 = 0, bool noPrewarp = false) {
    auto context = std::make_shared<IirDesignContext>(BUTTERWORTH, LOWPASS, order, fc);
    context->options.reset(BUTTERWORTH);
    context->options.reset(LOWPASS);
    context->options.set(family);
    context->options.set(band);
    context->options.set(MATCHED_Z, matchedZ);
    context->options.set(NO_PREWARP, noPrewarp);
    context->fc2 = fc2;
    context->ripple = -0.5;
    design(context);
    return context;
}

// Each coefficient within the float rounding of a value given to 9 digits.
void expectCoefficients(const std::vector<scalar>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t k = 0; k < expected.size(); ++k)
        EXPECT_NEAR(actual[k], expected[k], 2e-6 * std::max(1.0, std::fabs(expected[k]))) << "[" << k << "]";
}

double db(const std::shared_ptr<IirDesignContext>& c, double f) { return magnitudeDb(*c->a, *c->b, f); }

CoreRequest request(int options, int order, double alpha1) {
    CoreRequest r;
    r.options = options;
    r.order = order;
    r.alpha1 = alpha1;
    return r;
}

}  // namespace

TEST(FilterDesign, ButterworthMagnitudeOnTheUnitCircle) {
    // Bilinear with pre-warping gives exactly |H|^2 = 1 / (1 + (tan(pi f) / tan(pi fc))^(2N)).
    // High orders at corners near 0 or 0.5 crowd their poles, and 32-bit direct form coefficients
    // cannot hold them (order 10 at 0.02 is off by tens of dB): those corners are checked to order 3.
    double worstShape = 0;
    for (double fc : {0.02, 0.1, 0.208333, 0.45}) {
        for (uint64_t order = 1; order <= ((fc < 0.05 || fc > 0.4) ? 3u : 10u); ++order) {
            auto c = run(BUTTERWORTH, order, fc);
            for (double f = 0.005; f < 0.5; f += 0.005) {
                const double exact = -10 * std::log10(1 + std::pow(std::tan(kPi * f) / std::tan(kPi * fc), 2.0 * order));
                if (exact > -60) worstShape = std::max(worstShape, std::fabs(db(c, f) - exact));
            }
        }
    }
    // What is left is the rounding of the coefficients to 32 bits.
    EXPECT_LT(worstShape, 0.01);
}

// Golden values from scipy 1.10 (scipy.signal.bessel(N, 0.2, 'low', norm='mag', fs=1), a[1:]):
// the prototype poles here are normalised like norm='mag' (-3 dB at 1 rad/s), scipy pre-warps
// the corner to 2 tan(pi f) and maps with the bilinear transform at fs = 1, as the design does.
TEST(FilterDesign, BesselMatchesAReferenceDesignAtEveryOrder) {
    const std::vector<double> expected[] = {
        {-0.15838444},
        {-0.0844605117, 0.0733414069},
        {0.0386380876, 0.159857411, -0.00320403524},
        {0.226898763, 0.268691379, 0.0134763737, 0.00522871651},
        {0.485632919, 0.430718348, 0.0777614976, 0.0221282544, 0.000853667},
        {0.807352818, 0.689516441, 0.228269344, 0.0695694301, 0.0083102858, 0.000648276709},
        {1.18024957, 1.09025268, 0.521335149, 0.189750875, 0.039131279, 0.00530222724, 0.000287324886},
        {1.59432154, 1.67454878, 1.03669874, 0.460085485, 0.133529744, 0.0263108856, 0.00299758459,
         0.000159109415},
        {2.0423195, 2.47985514, 1.88054708, 1.00794314, 0.376312985, 0.0990179765, 0.017273536, 0.00182864729,
         8.80202652e-05},
        {2.51896858, 3.53981963, 3.1863392, 2.02821769, 0.928714176, 0.30900013, 0.0729233653, 0.0116660287,
         0.0011347978, 5.09400372e-05},
    };
    for (uint64_t order = 1; order <= 10; ++order) {
        SCOPED_TRACE(order);
        auto c = run(BESSEL, order, 0.2);
        expectCoefficients(*c->a, expected[order - 1]);
        EXPECT_NEAR(db(c, 0.0), 0.0, 1e-5);
    }
}

// Golden values from scipy 1.10, a[1:] and b, with fs = 1: the worked designs, which are
// butter(2, 0.15625) and butter(1, 0.1); butter(3, 0.1, 'highpass'); cheby1(4, 0.5, 0.1), whose
// even order puts DC at the bottom of the ripple (scipy's b 0.5 dB below unity there, the
// design's at unity: only its poles are compared); with the edges 0.1 and 0.2,
// butter(2, ...), cheby1(3, 0.5, ...) and bessel(5, ..., norm='mag') with btype 'bandpass' and
// 'bandstop'.  A band-pass or a high-pass has no gain at DC, so its b, scaled to unity there, is
// unusable: only its poles are compared.  Without pre-warping, the analog corner 2 pi fc rad/s
// goes to the bilinear transform as it is: bilinear_zpk(*butter(2, 2 pi 0.1, analog=True,
// output='zpk'), fs=1) scaled to unity at DC.  The matched z-transform maps each pole by exp(s)
// and adds no zeros: poly(exp(p)) for the poles p of bessel(3, 2 pi 0.05, analog=True, norm='mag').
TEST(FilterDesign, MatchesAReferenceDesignInEveryBandAndMapping) {
    struct Case {
        Options family, band;
        uint64_t order;
        double fc;
        bool matchedZ, noPrewarp;
        std::vector<double> a, b;
    };
    const Case cases[] = {
        {BUTTERWORTH, LOWPASS, 2, 0.15625, false, false, {-0.69973803, 0.25949518}, {0.13993929, 0.27987857, 0.13993929}},
        {BUTTERWORTH, LOWPASS, 1, 0.1, false, false, {-0.50952545}, {0.24523728, 0.24523728}},
        {BUTTERWORTH, HIGHPASS, 3, 0.1, false, false, {-1.76004188, 1.18289326, -0.278059918}, {}},
        {BUTTERWORTH, BANDPASS, 2, 0.1, false, false, {-1.94246878, 2.1192024, -1.21665164, 0.412801598}, {}},
        {BUTTERWORTH, BANDSTOP, 2, 0.1, false, false, {-1.94246878, 2.1192024, -1.21665164, 0.412801598},
         {0.638945525, -1.57956021, 2.25411294, -1.57956021, 0.638945525}},
        {CHEBYSHEV, LOWPASS, 4, 0.1, false, false, {-2.91410251, 3.51792719, -2.0347429, 0.47291094}, {}},
        {CHEBYSHEV, BANDPASS, 3, 0.1, false, false,
         {-3.0839741, 5.25634486, -5.58726059, 4.0573247, -1.82099674, 0.458305638}, {}},
        {CHEBYSHEV, BANDSTOP, 3, 0.1, false, false,
         {-2.93292655, 4.67277045, -4.58548442, 2.99602477, -1.14739574, 0.228059136},
         {0.518247735, -1.92176829, 3.93017944, -4.82227013, 3.93017944, -1.92176829, 0.518247735}},
        {BESSEL, BANDPASS, 5, 0.1, false, false,
         {-4.1582338, 8.75448686, -12.1309488, 12.2768979, -9.44339427, 5.5839279, -2.5027833, 0.819624337,
          -0.178547891, 0.0206642785},
         {}},
        {BESSEL, BANDSTOP, 5, 0.1, false, false,
         {-5.29005043, 14.7812911, -27.084553, 35.7417656, -35.1285277, 26.0593899, -14.3971584, 5.72877945,
          -1.49507212, 0.206505731},
         {0.470329508, -2.90679622, 9.53764298, -20.5095637, 31.7508934, -36.5626417, 31.7508934, -20.5095637,
          9.53764298, -2.90679622, 0.470329508}},
        {BUTTERWORTH, LOWPASS, 2, 0.1, false, true, {-1.16826067, 0.424118207}, {0.0639643849, 0.12792877, 0.0639643849}},
        {BESSEL, LOWPASS, 3, 0.05, true, false, {-2.02886198, 1.42127257, -0.34176311}, {0.0506474821, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "family " << c.family << " band " << c.band << " order " << c.order);
        auto context = run(c.family, c.order, c.fc, c.matchedZ, c.band, 0.2, c.noPrewarp);
        expectCoefficients(*context->a, c.a);
        if (!c.b.empty()) expectCoefficients(*context->b, c.b);
    }
}

TEST(FilterDesign, OtherBandsOfTheCore) {
    using namespace core;
    std::vector<scalar> a, b;

    // Resonators at 0.05, Q 5: a notch is unity at DC and nothing at its frequency; an all-pass
    // has unit magnitude everywhere.
    CoreRequest resonator = request(kResonator | kBandStop | kCornerFrequency, 0, 0.05);
    resonator.qfactor = 5;
    designCore(resonator, a, b);
    EXPECT_NEAR(magnitudeDb(a, b, 0.0), 0.0, 1e-5);
    EXPECT_LT(std::abs(response(a, b, 0.05)), 1e-5);
    resonator.options = kResonator | kAllPass | kCornerFrequency;
    designCore(resonator, a, b);
    for (double f = 0; f < 0.5; f += 0.01) EXPECT_NEAR(std::abs(response(a, b, f)), 1.0, 1e-5) << f;

    // Extra zeros at 0.25 on a low-pass: a null there, still unity at DC.
    CoreRequest extra = request(kButterworth | 0x420 | kOrder | kExtraZeros, 2, 0.1);
    extra.alphaZ = 0.25;
    designCore(extra, a, b);
    EXPECT_EQ(a.size(), 4u);
    EXPECT_NEAR(magnitudeDb(a, b, 0.0), 0.0, 1e-5);
    EXPECT_LT(std::abs(response(a, b, 0.25)), 1e-5);
}

TEST(FilterDesign, Failures) {
    using namespace core;
    auto context = [](Options family, uint64_t order, double fc) {
        return [=] { IirDesignContext context(family, LOWPASS, order, fc); };
    };
    auto core = [](int options, int order, unsigned polemask = 0) {
        return [=] {
            CoreRequest r = request(options, order, 0.1);
            r.polemask = polemask;
            std::vector<scalar> a, b;
            designCore(r, a, b);
        };
    };
    const std::pair<std::function<void()>, const char*> cases[] = {
        {context(CHEBYSHEV, 2, 0.1), "IirDesignContext: ripple must be less than zero."},
        {context(BUTTERWORTH, 2, 0.5), "IirDesignContext: fc1 must be (0, 0.5)."},
        {context(BUTTERWORTH, 2, 0.0), "IirDesignContext: fc1 must be (0, 0.5)."},
        {context(BUTTERWORTH, 0, 0.1), "DesignContext: Invalid filter order: 0"},
        {core(kProportionalIntegrator | 0x420 | kOrder, 1), "options incompatible with proportional integrator"},
        {core(kProportionalIntegrator | kCornerFrequency | kOrder, 2), "proportional integrator allows only order of 1"},
        {core(kButterworth | 0x420 | kOrder, 0), "filter order out of range"},
        {core(kButterworth | 0x420 | kOrder | kPoleMask, 2, 0x4), "selected poles out of range"},
        {core(kChebyshev | 0x420 | kOrder, 2), "Chebyshev ripple must be < 0"},
    };
    for (const auto& [action, expected] : cases) EXPECT_EQ(orm_test::messageOf(action), expected);

    // Order 11 passes the constructor and fails in the core; the results stay as they were.
    auto eleven = std::make_shared<IirDesignContext>(BUTTERWORTH, LOWPASS, 11, 0.1);
    EXPECT_EQ(orm_test::messageOf([&] { design(eleven); }), "filter order out of range");
    EXPECT_FALSE(eleven->a);
}
