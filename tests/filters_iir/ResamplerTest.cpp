// The IIR resamplers: designs at the host rates, messages, the section cascade against a
// double-precision reference, and whole systems through the Driver with a change of Factor.

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "engine/DSPGraph.h"
#include "engine/Driver.h"
#include "filters/BiQuad.h"
#include "filters/IirResamplers.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using ormtest::DifferenceEquation;

namespace {

constexpr double kPi = 3.14159265358979323846;

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

template <typename R>
std::string initMessage(const Properties& properties) {
    R resampler;
    auto context = ormtest::makeContext();
    try {
        resampler.init("r", properties, context);
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "";
}

std::vector<scalar> coefficients(Filter& section, bool a) {
    auto* biquad = dynamic_cast<BiQuad*>(&section);
    return a ? std::vector<scalar>(biquad->getA(), biquad->getA() + 2)
             : std::vector<scalar>(biquad->getB(), biquad->getB() + 3);
}

}  // namespace

TEST(IirResamplers, DesignAtTheHostRate) {
    auto context = ormtest::makeContext();
    IirInterpolator up;
    up.init("up", resamplerProperties("15000", "2", "2", "Butterworth", "4"), context);
    up.setMaxBlockSize(64);
    up.setSamplingRate(48000);
    IirDecimator down;
    down.init("down", resamplerProperties("20000", "2", "2", "Butterworth", "8"), context);
    down.setMaxBlockSize(128);
    down.setSamplingRate(96000);
    std::printf("[ figures  ] relative corners at 48000 Hz, factor 2: interpolator %.6f, decimator %.6f\n",
                up.getRelativeFrequency(), down.getRelativeFrequency());
    EXPECT_FLOAT_EQ(up.getRelativeFrequency(), 0.15625f);
    EXPECT_NEAR(down.getRelativeFrequency(), 0.208333f, 1e-6);
    ASSERT_EQ(up.getSections().size(), 4u);
    ASSERT_EQ(down.getSections().size(), 8u);
    // The worked design at 0.15625; the first section of the interpolator carries the factor.
    const std::vector<scalar> a = {-0.69973803f, 0.25949518f}, b = {0.13993929f, 0.27987857f, 0.13993929f};
    for (size_t s = 0; s < 4; ++s) {
        auto sa = coefficients(*up.getSections()[s], true);
        auto sb = coefficients(*up.getSections()[s], false);
        for (size_t k = 0; k < 2; ++k) EXPECT_NEAR(sa[k], a[k], 1e-7);
        for (size_t k = 0; k < 3; ++k) EXPECT_NEAR(sb[k], b[k] * (s == 0 ? 2 : 1), 2e-7);
    }
    // All decimator sections equal, and a cascade of n sections is down 3.01·n dB at the corner.
    auto da = coefficients(*down.getSections()[7], true), db = coefficients(*down.getSections()[7], false);
    EXPECT_NEAR(8 * ormtest::magnitudeDb(da, db, 20000.0 / 96000.0), -8 * 3.0103, 1e-3);
}

TEST(IirResamplers, NoDesignAboveNyquistAndTheBesselRoad) {
    auto context = ormtest::makeContext();
    IirInterpolator up;
    up.init("up", resamplerProperties("30000", "1"), context);
    up.setMaxBlockSize(16);
    up.setSamplingRate(44100);
    EXPECT_GT(up.getRelativeFrequency(), 0.5f);
    std::vector<scalar> in(16, 1.0f);
    std::vector<scalar*> inputs = {in.data()};
    up.process(inputs, 16);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(up.getOutput(0)[i], 0.0f);

    // Bessel of order 3 runs on Iir sections, silent until designed, then at unity DC gain.
    IirDecimator down;
    down.init("down", resamplerProperties("1000", "2", "3", "Bessel", "2"), context);
    down.setMaxBlockSize(256);
    down.process(inputs, 16);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(down.getOutput(0)[i], 0.0f);
    down.setSamplingRate(48000);
    std::vector<scalar> ones(256, 1.0f);
    inputs[0] = ones.data();
    for (int block = 0; block < 10; ++block) down.process(inputs, 256);
    EXPECT_NEAR(down.getOutput(0)[127], 1.0f, 1e-4);
}

TEST(IirResamplers, InterpolatorMatchesAStuffedCascadeInDouble) {
    auto context = ormtest::makeContext();
    IirInterpolator up;
    up.init("up", resamplerProperties("15000", "4", "2", "Butterworth", "4"), context);
    up.setMaxBlockSize(100);
    up.setSamplingRate(48000);
    std::vector<DifferenceEquation> reference;
    for (auto& section : up.getSections()) reference.emplace_back(coefficients(*section, true), coefficients(*section, false));
    const auto in = ormtest::testSignal(1000);
    double worst = 0;
    std::vector<scalar*> inputs(1);
    std::vector<scalar> out(400);
    std::vector<scalar*> outputs = {out.data()};
    for (size_t start = 0; start < in.size(); start += 100) {
        inputs[0] = const_cast<scalar*>(in.data() + start);
        up.process(inputs, outputs, 100);
        for (size_t i = 0; i < 400; ++i) {
            double v = i % 4 == 0 ? in[start + i / 4] : 0.0;
            for (auto& r : reference) v = r.step(v);
            worst = std::max(worst, std::fabs(out[i] - v));
        }
    }
    std::printf("[ figures  ] interpolator x4, 4 sections, against the double cascade: worst %.3g\n", worst);
    EXPECT_LT(worst, 1e-5);
}

TEST(IirResamplers, FactorFramesAndMessages) {
    auto context = ormtest::makeContext();
    auto graph = std::make_shared<DSPGraph>();
    context->setGraph(graph);
    IirInterpolator up;
    up.init("up", resamplerProperties("15000", "2"), context);
    up.propertyChanged("Factor", 2.6f);
    EXPECT_EQ(up.getFactor(), 3);
    EXPECT_DOUBLE_EQ(graph->getMultiplier(), static_cast<double>(2.6f));
    IirDecimator down;
    down.init("down", resamplerProperties("20000", "2"), context);
    down.propertyChanged("Factor", 4.0f);
    EXPECT_DOUBLE_EQ(graph->getMultiplier(), 0.25);

    // 5 frames into a decimator of factor 2: 3 samples in its array, 2 copied to a separate output.
    IirDecimator odd;
    odd.init("odd", resamplerProperties("20000", "2"), context);
    odd.setMaxBlockSize(8);
    odd.setSamplingRate(96000);
    std::vector<scalar> in = {1, 2, 3, 4, 5}, out(4, -7.0f);
    std::vector<scalar*> inputs = {in.data()}, outputs = {out.data()};
    odd.process(inputs, outputs, 5);
    EXPECT_NE(odd.getOutput(0)[2], 0.0f);
    EXPECT_EQ(out[1], odd.getOutput(0)[1]);
    EXPECT_EQ(out[2], -7.0f);
    odd.process(inputs, outputs, 0);

    auto message = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const VRNException& e) {
            return e.getMessage();
        }
        return std::string();
    };
    EXPECT_EQ(initMessage<IirInterpolator>(Properties()), "IirInterpolator: CornerFrequency is not defined");
    EXPECT_EQ(initMessage<IirDecimator>(resamplerProperties("-1", "2")),
              "IirDecimator: cornerFrequency must be greater than 0. CornerFrequency=-1");
    EXPECT_EQ(initMessage<IirDecimator>(resamplerProperties("0", "2")), "");
    EXPECT_EQ(initMessage<IirDecimator>(resamplerProperties("100", "2", "2", "Cheby")), "IirDecimator: Unknown Type: Cheby");
    EXPECT_EQ(initMessage<IirDecimator>(resamplerProperties("100", "2", "0")),
              "IirDecimator: Order must be greater than zero. Order=0");
    EXPECT_EQ(initMessage<IirInterpolator>(resamplerProperties("100", "0")),
              "IirInterpolator: Factor must be greater than 0. Factor=0");
    EXPECT_EQ(initMessage<IirInterpolator>(resamplerProperties("100", "2", "2", "Butterworth", "1")),
              "IirInterpolator: Cascade must be greater than 1. Cascade=1");
    Properties noType = resamplerProperties("100", "2");
    noType.erase("Type");
    EXPECT_EQ(initMessage<IirInterpolator>(noType), "IirInterpolator: Type must be specified");
    Properties noFactor = resamplerProperties("100", "2");
    noFactor.erase("Factor");
    EXPECT_EQ(initMessage<IirDecimator>(noFactor), "IirDecimator: Factor must be specified");

    IirInterpolator biquad;
    biquad.init("b", resamplerProperties("15000", "2", "2", "BiQuad"), context);
    EXPECT_EQ(message([&] { biquad.setSamplingRate(48000); }), "IirInterpolator: BiQuads are not yet supported!");
    EXPECT_EQ(message([&] { up.init("x", context); }),
              "IirDecimator: init(const std::string &name, std::shared_ptr<DSPContext> &context) is not supported.");
    EXPECT_EQ(message([&] { up.process(1.0f); }), "IirInterpolator: process(scalar in) is not supported.");
    EXPECT_EQ(message([&] { down.endIteration(0); }), "IirDecimator: endIteration is not supported.");
    EXPECT_EQ(message([&] { down.getLastIterationResults(); }), "IirDecimator: getLastIterationResults is not supported.");
    EXPECT_EQ(message([&] { down.propertyChanged("Gain", 1.0f); }), "IirInterpolator: Unknown property Gain");
    EXPECT_EQ(message([&] { down.getOutput(1); }), "Iir: Invalid output index: 1");
    EXPECT_EQ(message([&] { down.setMaxBlockSize(0); }), "IirDecimator: Invalid maxBlockSize0");
    odd.setMaxBlockSize(4);
    std::vector<scalar> many(16);
    inputs[0] = many.data();
    EXPECT_EQ(message([&] { odd.process(inputs, 16); }), "IirDecimator: framesPerBuffer (16) is greater than maxBlockSize (8).");
}

namespace {

const char* kOversampledSystem = R"(<System>
  <Graphs>
    <Graph Name="G1" Type="DSP" Multiplier="2">
      <Element Type="IirInterpolator" Name="up">
        <Properties CornerFrequency="15000" Factor="2" Order="2" Cascade="4" Type="Butterworth"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Output><Node Name="out" Element="up" Port="out"/></Output>
      <NumberOfInputs>1</NumberOfInputs>
      <Inputs><Input Graph="System" Node="0"/></Inputs>
    </Graph>
    <Graph Name="middle" Type="DSP">
      <Element Type="Gain" Name="gain">
        <Properties Gain="1.0"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Output><Node Name="out" Element="gain" Port="out"/></Output>
      <NumberOfInputs>1</NumberOfInputs>
      <Inputs><Input Graph="G1" Node="out"/></Inputs>
    </Graph>
    <Graph Name="G2" Type="DSP" Multiplier="0.5">
      <Element Type="IirDecimator" Name="down">
        <Properties CornerFrequency="20000" Factor="2" Order="2" Cascade="8" Type="Butterworth"/>
        <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
      </Element>
      <Output><Node Name="out" Element="down" Port="out"/></Output>
      <NumberOfInputs>1</NumberOfInputs>
      <Inputs><Input Graph="middle" Node="out"/></Inputs>
    </Graph>
  </Graphs>
  <Outputs><Output Graph="G2" Node="out"/></Outputs>
  <Controls>
    <Control Name="Oversampling" DisplayName="Oversampling" Value="2">
      <Properties>
        <Property Name="Factor" Graph="G1" Element="up"/>
        <Property Name="Factor" Graph="G2" Element="down"/>
      </Properties>
    </Control>
  </Controls>
</System>)";

// Peak of the settled second half of a run.
double settledPeak(const std::vector<scalar>& out) {
    double peak = 0;
    for (size_t i = out.size() / 2; i < out.size(); ++i) peak = std::max(peak, std::fabs(static_cast<double>(out[i])));
    return peak;
}

}  // namespace

TEST(IirResamplers, OversampledSystemThroughTheDriver) {
    auto driver = Driver::create();
    driver->setDSPElementFactory(std::make_shared<DSPElementFactory>());
    std::istringstream description(kOversampledSystem);
    driver->init(description);
    driver->setSamplingRate(48000);
    driver->setMaxBlockSize(256);

    auto graph = [&](const char* name) { return driver->getGraph(name); };
    const auto& order = driver->getOrder();
    auto multiplierOf = [&](const char* name) {
        for (size_t i = 0; i < driver->getGraphs()->size(); ++i)
            if ((*driver->getGraphs())[i]->getName() == name) return driver->getMultipliers()[i];
        return -1.0;
    };
    ASSERT_EQ(order.size(), 3u);
    EXPECT_EQ(multiplierOf("middle"), 2.0);
    EXPECT_EQ(multiplierOf("G2"), 2.0);
    auto* up = dynamic_cast<IirInterpolator*>(graph("G1")->getContext()->getElement("up"));
    auto* down = dynamic_cast<IirDecimator*>(graph("G2")->getContext()->getElement("down"));
    ASSERT_TRUE(up && down);
    EXPECT_FLOAT_EQ(up->getRelativeFrequency(), 0.15625f);
    EXPECT_NEAR(down->getRelativeFrequency(), 0.208333f, 1e-6);

    // 1 kHz at 48 kHz, half scale, in blocks of 256 with a short last block.
    const size_t total = 48000;
    std::vector<scalar> sine(total);
    for (size_t i = 0; i < total; ++i) sine[i] = static_cast<scalar>(0.5 * std::sin(2 * kPi * 1000.0 * i / 48000.0));
    auto render = [&](size_t from, size_t count) {
        std::vector<scalar> out;
        for (size_t pos = from; pos < from + count;) {
            const size_t n = std::min<size_t>(pos % 3 == 0 ? 256 : 200, from + count - pos);
            std::vector<scalar*> inputs = {sine.data() + pos};
            driver->process(inputs, n);
            const scalar* o = driver->getOutputs()[0];
            out.insert(out.end(), o, o + n);
            pos += n;
        }
        return out;
    };
    std::vector<double> gainsDb;
    auto out = render(0, 12000);
    gainsDb.push_back(20 * std::log10(settledPeak(out) / 0.5));

    // Each change reaches the elements at the next block; blocks of 256 at factor 8 run only if
    // the Driver has grown every graph's block size (a graph refuses a block above its size).
    for (float factor : {4.0f, 8.0f, 2.0f}) {
        (*driver->getControls())[0]->setValue(factor);
        out = render(gainsDb.size() * 12000 % total, 12000);
        for (scalar v : out) ASSERT_TRUE(std::isfinite(v));
        EXPECT_EQ(up->getFactor(), static_cast<int>(factor));
        EXPECT_EQ(down->getFactor(), static_cast<int>(factor));
        EXPECT_EQ(multiplierOf("middle"), factor);
        EXPECT_EQ(multiplierOf("G2"), factor);
        EXPECT_FLOAT_EQ(up->getRelativeFrequency(), 15000.0f / 48000.0f / factor);
        EXPECT_FLOAT_EQ(down->getRelativeFrequency(), 20000.0f / (48000.0f * factor));
        gainsDb.push_back(20 * std::log10(settledPeak(out) / 0.5));
    }
    std::printf("[ figures  ] 1 kHz through interpolator, gain, decimator at factors 2, 4, 8, 2: %.4f %.4f %.4f %.4f dB\n",
                gainsDb[0], gainsDb[1], gainsDb[2], gainsDb[3]);
    for (double g : gainsDb) EXPECT_NEAR(g, 0.0, 0.1);
}
