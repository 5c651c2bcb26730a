// The IIR resamplers: designs at the host rates, messages, the section cascade against a
// double-precision reference, and whole systems through the Driver with a change of Factor.

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>
#include <functional>

#include "engine/DSPGraph.h"
#include "filters/BiQuad.h"
#include "filters/IirResamplers.h"
#include "support/TestSupport.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using ormtest::DifferenceEquation;

namespace {

Properties resamplerProperties(const std::string& corner, const std::string& factor, const std::string& order = "2",
                               const std::string& type = "Butterworth", const std::string& cascade = "") {
    Properties p;
    p["CornerFrequency"] = corner;
    p["Factor"] = factor;
    p["Order"] = order;
    p["Type"] = type;
    if (!cascade.empty()) p["Cascade"] = cascade;
    return p;
}

// A resampler of type R initialised from properties, sized and, when rate > 0, at that rate.
template <typename R>
std::unique_ptr<R> make(Properties p, int maxBlock = 256, float rate = 0, std::shared_ptr<DSPContext> context = nullptr) {
    auto r = std::make_unique<R>();
    if (!context) context = std::make_shared<DSPContext>();
    r->init("r", p, context);
    r->setMaxBlockSize(maxBlock);
    if (rate > 0) r->setSamplingRate(rate);
    return r;
}

std::vector<scalar> coefficients(Filter& section, bool a) {
    auto* biquad = dynamic_cast<BiQuad*>(&section);
    return a ? std::vector<scalar>(biquad->getA(), biquad->getA() + 2)
             : std::vector<scalar>(biquad->getB(), biquad->getB() + 3);
}

}  // namespace

TEST(IirResamplers, DesignAtTheHostRate) {
    auto up = make<IirInterpolator>(resamplerProperties("15000", "2", "2", "Butterworth", "4"), 64, 48000);
    ASSERT_EQ(up->getSections().size(), 4u);
    // The worked design at 0.15625; the first section of the interpolator carries the factor.
    const std::vector<scalar> a = {-0.69973803f, 0.25949518f}, b = {0.13993929f, 0.27987857f, 0.13993929f};
    for (size_t s = 0; s < 4; ++s) {
        auto sa = coefficients(*up->getSections()[s], true), sb = coefficients(*up->getSections()[s], false);
        for (size_t k = 0; k < 2; ++k) EXPECT_NEAR(sa[k], a[k], 1e-7);
        for (size_t k = 0; k < 3; ++k) EXPECT_NEAR(sb[k], b[k] * (s == 0 ? 2 : 1), 2e-7);
    }

    // A corner at or above the low rate's Nyquist frequency, the Nyquist frequency itself too, is
    // pulled to 0.9 of it, so that low host rates keep their sound; just below it stays.
    struct Clamp {
        bool up;
        const char *corner, *factor;
        float rate, expected;
    };
    const Clamp clamps[] = {{true, "30000", "1", 44100, 0.45f}, {true, "15000", "2", 22050, 0.45f / 2},
                            {false, "24000", "2", 96000, 0.225f}, {false, "23900", "2", 96000, 23900.0f / 96000},
                            {false, "20000", "4", 32000, 0.45f / 4}};
    for (const Clamp& c : clamps) {
        const Properties p = resamplerProperties(c.corner, c.factor);
        EXPECT_FLOAT_EQ(c.up ? make<IirInterpolator>(p, 16, c.rate)->getRelativeFrequency()
                             : make<IirDecimator>(p, 16, c.rate)->getRelativeFrequency(),
                        c.expected)
            << c.corner << " Hz at " << c.rate;
    }
    std::vector<scalar> ones(256, 1.0f);
    std::vector<scalar*> inputs = {ones.data()};
    // Bessel of order 3 runs on Iir sections, silent until designed, then at unity DC gain.
    auto bessel = make<IirDecimator>(resamplerProperties("1000", "2", "3", "Bessel", "2"));
    bessel->process(inputs, 16);
    EXPECT_EQ(std::vector<scalar>(bessel->getOutput(0), bessel->getOutput(0) + 8), std::vector<scalar>(8, 0.0f));
    bessel->setSamplingRate(48000);
    for (int block = 0; block < 10; ++block) bessel->process(inputs, 256);
    EXPECT_NEAR(bessel->getOutput(0)[127], 1.0f, 1e-4);
}

TEST(IirResamplers, InterpolatorMatchesAStuffedCascadeInDouble) {
    auto up = make<IirInterpolator>(resamplerProperties("15000", "4", "2", "Butterworth", "4"), 100, 48000);
    std::vector<DifferenceEquation> reference;
    for (auto& section : up->getSections()) reference.emplace_back(coefficients(*section, true), coefficients(*section, false));
    const auto in = ormtest::testSignal(1000);
    double worst = 0;
    std::vector<scalar*> inputs(1);
    std::vector<scalar> out(400);
    std::vector<scalar*> outputs = {out.data()};
    for (size_t start = 0; start < in.size(); start += 100) {
        inputs[0] = const_cast<scalar*>(in.data() + start);
        up->process(inputs, outputs, 100);
        for (size_t i = 0; i < 400; ++i) {
            double v = i % 4 == 0 ? in[start + i / 4] : 0.0;
            for (auto& r : reference) v = r.step(v);
            worst = std::max(worst, std::fabs(out[i] - v));
        }
    }
    EXPECT_LT(worst, 1e-5);
}

TEST(IirResamplers, FactorFramesAndMessages) {
    auto context = std::make_shared<DSPContext>();
    auto graph = std::make_shared<DSPGraph>();
    context->setGraph(graph.get());
    auto up = make<IirInterpolator>(resamplerProperties("15000", "2"), 256, 0, context);
    // The graph's rate follows the whole factor the resampler runs at, not the value sent.
    up->propertyChanged("Factor", 2.498f);  // rounds to the nearest
    EXPECT_EQ(up->getFactor(), 2);
    up->propertyChanged("Factor", 256.4f);  // the largest
    EXPECT_EQ(up->getFactor(), 256);
    up->propertyChanged("Factor", 2.6f);
    EXPECT_EQ(up->getFactor(), 3);
    EXPECT_EQ(graph->getMultiplier(), 3.0);
    for (float bad : {0.49f, -2.0f, 256.5f, std::nanf("")}) {
        EXPECT_THROW(up->propertyChanged("Factor", bad), InvalidArgumentException) << bad;
        EXPECT_EQ(up->getFactor(), 3) << bad;
        EXPECT_EQ(graph->getMultiplier(), 3.0) << bad;
    }
    auto down = make<IirDecimator>(resamplerProperties("20000", "2"), 256, 0, context);
    down->propertyChanged("Factor", 4.0f);
    EXPECT_DOUBLE_EQ(graph->getMultiplier(), 0.25);

    // 5 frames into a decimator of factor 2: 3 samples in its array, 2 copied to a separate output.
    auto odd = make<IirDecimator>(resamplerProperties("20000", "2"), 8, 96000);
    std::vector<scalar> in = {1, 2, 3, 4, 5}, out(4, -7.0f), many(16);
    std::vector<scalar*> inputs = {in.data()}, outputs = {out.data()}, manyInputs = {many.data()};
    odd->process(inputs, outputs, 5);
    EXPECT_NE(odd->getOutput(0)[2], 0.0f);
    EXPECT_EQ(out[1], odd->getOutput(0)[1]);
    EXPECT_EQ(out[2], -7.0f);
    odd->process(inputs, outputs, 0);

    // A fresh resampler of the pointer's type initialised from p.
    auto init = [](auto* type, Properties p) {
        return [p]() mutable { make<std::remove_pointer_t<decltype(type)>>(p); };
    };
    IirInterpolator* const interpolator = nullptr;
    IirDecimator* const decimator = nullptr;
    const std::pair<std::function<void()>, const char*> cases[] = {
        {init(decimator, resamplerProperties("-0.01", "2")),
         "IirDecimator: cornerFrequency must be greater than 0. CornerFrequency=-0.01"},
        {init(decimator, resamplerProperties("0", "2")), ""},
        {init(decimator, resamplerProperties("100", "2", "0")), "IirDecimator: Order must be greater than zero. Order=0"},
        {init(interpolator, resamplerProperties("100", "2", "2", "Butterworth", "1")),
         "IirInterpolator: Cascade must be greater than 1. Cascade=1"},
        {init(interpolator, resamplerProperties("100", "2", "2", "Butterworth", "2")), ""},
        {[&] { odd->setMaxBlockSize(4); odd->process(manyInputs, 16); },
         "IirDecimator: framesPerBuffer (16) is greater than maxBlockSize (8)."},
    };
    for (const auto& [action, expected] : cases) EXPECT_EQ(orm_test::messageOf(action), expected);
}

namespace {

// Interpolator, gain and decimator, each in a graph of its own; one control sets both factors.
const std::string kOversampledSystem = orm_test::systemOf(
    ormtest::elementGraph("G1", "2", "IirInterpolator", "up",
                          R"(CornerFrequency="15000" Factor="2" Order="2" Cascade="4" Type="Butterworth")", "System", "0") +
        orm_test::gainGraph("middle", "G1", "out") +
        ormtest::elementGraph("G2", "0.5", "IirDecimator", "down",
                              R"(CornerFrequency="20000" Factor="2" Order="2" Cascade="8" Type="Butterworth")", "middle", "out"),
    R"(<Output Graph="G2" Node="out"/>)",
    R"(<Controls><Control Name="Oversampling" DisplayName="Oversampling" Value="2"><Properties>
         <Property Name="Factor" Graph="G1" Element="up"/><Property Name="Factor" Graph="G2" Element="down"/>
       </Properties></Control></Controls>)");

}  // namespace

TEST(IirResamplers, OversampledSystemThroughTheDriver) {
    auto driver = orm_test::loadSystem(kOversampledSystem);
    driver->setSamplingRate(48000);
    driver->setMaxBlockSize(256);
    auto* up = dynamic_cast<IirInterpolator*>(driver->getGraph("G1")->getContext()->getElement("up"));
    auto* down = dynamic_cast<IirDecimator*>(driver->getGraph("G2")->getContext()->getElement("down"));
    ASSERT_TRUE(up && down);

    // Each change reaches the elements at the next block; blocks of 256 at factor 8 run only if
    // the Driver has grown every graph's block size (a graph refuses a block above its size).
    const float factors[] = {2.0f, 4.0f, 8.0f, 2.0f};
    for (size_t k = 0; k < 4; ++k) {
        if (k > 0) (*driver->getControls())[0]->setValue(factors[k]);
        const auto out = ormtest::renderSine(*driver, 12000 * k, 12000);
        EXPECT_EQ(up->getFactor(), static_cast<int>(factors[k]));
        EXPECT_EQ(down->getFactor(), static_cast<int>(factors[k]));
        EXPECT_FLOAT_EQ(up->getRelativeFrequency(), 15000.0f / 48000.0f / factors[k]);
        EXPECT_FLOAT_EQ(down->getRelativeFrequency(), 20000.0f / (48000.0f * factors[k]));
        EXPECT_NEAR(ormtest::sineGainDb(out, 6000), 0.0, 0.1) << factors[k];
    }
}
