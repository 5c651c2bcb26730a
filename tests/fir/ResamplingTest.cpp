// The Kaiser-designed resampling filters: their checks in order, their taps, and a system of an
// upsampling and a decimating graph run end to end through the Driver.

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "engine/Context.h"
#include "engine/Driver.h"
#include "filters/Fir.h"

using namespace vrn;

// Counts allocations so that steady-state blocks can be shown to make none.
namespace {
std::atomic<long> allocations{0};
}
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

template <typename F>
std::string messageOf(F&& f) {
    try {
        f();
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "<no exception>";
}

Properties resamplingProperties() {
    Properties p;
    p["RelativeCornerFrequency"] = "0.4";
    p["Order"] = "31";
    p["Factor"] = "4";
    p["Attenuation"] = "60";
    return p;
}

// Tries to initialise a filter of type T with p and gives the message it fails with.
template <typename T>
std::string initMessage(Properties p) {
    auto context = std::make_shared<DSPContext>();
    T filter;
    return messageOf([&] { filter.init("r", p, context); });
}

}  // namespace

TEST(ResamplingFilters, PropertyChecksInOrder) {
    Properties p = resamplingProperties();
    p["AbsoluteCornerFrequency"] = "1000";
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p),
              "ResamplingUpsampler: RelativeCornerFrequency and AbsoluteCornerFrequency are defined. Only one is allowed.");
    p.erase("RelativeCornerFrequency");
    p.erase("AbsoluteCornerFrequency");
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p),
              "ResamplingUpsampler: Either RelativeCornerFrequency or AbsoluteCornerFrequency must be specified.");
    EXPECT_EQ(initMessage<ResamplingDecimator>(p),
              "ResamplingDecimator: Either RelativeCornerFrequency or AbsoluteCornerFrequency must be specified.");
    p["RelativeCornerFrequency"] = "1";
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p),
              "ResamplingUpsampler: RelativeCornerFrequency must be between 0 and 1. RelativeCornerFrequency=1");
    p.erase("RelativeCornerFrequency");
    p["AbsoluteCornerFrequency"] = "-5";
    EXPECT_EQ(initMessage<ResamplingDecimator>(p),
              "ResamplingDecimator: AbsoluteCornerFrequency must be greater than 0. AbsoluteCornerFrequency=-5");

    p = resamplingProperties();
    p.erase("Order");
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p), "ResamplingUpsampler: Order must be specified");
    p["Order"] = "0";
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p), "ResamplingUpsampler: Order must be greater than zero. Order=0");
    p = resamplingProperties();
    p.erase("Factor");
    EXPECT_EQ(initMessage<ResamplingDecimator>(p), "ResamplingDecimator: Factor must be specified");
    p["Factor"] = "0";
    EXPECT_EQ(initMessage<ResamplingDecimator>(p), "ResamplingDecimator: Factor must be greater than 0. Factor=0");
    p = resamplingProperties();
    p.erase("Attenuation");
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p), "ResamplingUpsampler: Attenuation must be specified");
    p["Attenuation"] = "1";
    EXPECT_EQ(initMessage<ResamplingUpsampler>(p), "ResamplingUpsampler: Attenuation must be greater than 1. Attenuation=1");
}

TEST(ResamplingFilters, DesignedTaps) {
    auto context = std::make_shared<DSPContext>();
    // The decimator's taps sum to 1.
    Properties p = resamplingProperties();
    ResamplingDecimator decimator;
    decimator.init("d", p, context);
    EXPECT_EQ(p["Order"], "32");  // rounded up to whole phases in the caller's map
    EXPECT_EQ(decimator.getLength(), 31u);
    double sum = 0.0;
    for (size_t k = 0; k < decimator.getLength(); ++k) sum += decimator.getCoefficients()[k];
    EXPECT_NEAR(sum, 1.0, 1e-6);

    // Each phase of the upsampler sums to about 1: every output sample gets unit gain at DC.
    // An even order doubles the centre tap, which leaves a floor under the stop band and so
    // a larger spread between the phases.
    for (const auto& order : {std::make_pair("63", 2e-3), std::make_pair("64", 0.03)}) {
        Properties q = resamplingProperties();
        q["Order"] = order.first;
        q["RelativeCornerFrequency"] = "0.45";
        ResamplingUpsampler upsampler;
        upsampler.init("u", q, context);
        EXPECT_EQ(upsampler.getLength(), 64u);
        for (size_t phase = 0; phase < 4; ++phase) {
            double phaseSum = 0.0;
            for (size_t k = phase; k < 64; k += 4) phaseSum += upsampler.getCoefficients()[k];
            EXPECT_NEAR(phaseSum, 1.0, order.second) << "order " << order.first << " phase " << phase;
            std::printf("[ info ] order %s phase %zu: sum %.5f\n", order.first, phase, phaseSum);
        }
    }

    // A corner of 0 and an attenuation below 21 dB both pass the checks and give no filter.
    Properties zero = resamplingProperties();
    zero["RelativeCornerFrequency"] = "0";
    ResamplingUpsampler silent;
    silent.init("z", zero, context);
    EXPECT_TRUE(std::isnan(silent.getCoefficients()[0]));
    Properties weak = resamplingProperties();
    weak["Attenuation"] = "20";
    ResamplingUpsampler weakFilter;
    weakFilter.init("w", weak, context);
    EXPECT_TRUE(std::isnan(weakFilter.getCoefficients()[5]));
}

TEST(ResamplingFilters, AbsoluteCornerWaitsForTheRate) {
    auto context = std::make_shared<DSPContext>();
    Properties p = resamplingProperties();
    p.erase("RelativeCornerFrequency");
    p["AbsoluteCornerFrequency"] = "10000";
    p["Factor"] = "2";
    ResamplingUpsampler up;
    up.init("u", p, context);
    EXPECT_EQ(up.getLength(), 0u);
    up.setSamplingRate(48000.0f);
    EXPECT_FLOAT_EQ(up.getSettings().relativeCorner, 10000.0f / 48000.0f / 2.0f);
    EXPECT_EQ(up.getLength(), 32u);
    // The decimator divides the same way, although its rate is already the high one.
    ResamplingDecimator down;
    Properties d = p;
    d["Order"] = "31";
    down.init("d", d, context);
    down.setSamplingRate(96000.0f);
    EXPECT_FLOAT_EQ(down.getSettings().relativeCorner, 10000.0f / 96000.0f / 2.0f);
    EXPECT_EQ(down.getLength(), 31u);
}

namespace {

std::string oversamplingSystem(int factor, const std::string& corners) {
    const std::string f = std::to_string(factor);
    std::ostringstream text;
    text << R"(<System><Graphs>
  <Graph Name="G1" Type="DSP" Multiplier=")" << factor << R"(">
    <NumberOfInputs>1</NumberOfInputs>
    <Inputs><Input Graph="System" Node="0"/></Inputs>
    <Element Name="up" Type="ResamplingUpsampler">
      <Properties Factor=")" << f << R"(" Order=")" << 24 * factor << R"(" Attenuation="70" )" << corners << R"(/>
      <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
    </Element>
    <Output><Node Name="out" Element="up" Index="0"/></Output>
  </Graph>
  <Graph Name="G2" Type="DSP" Multiplier=")" << 1.0 / factor << R"(">
    <NumberOfInputs>1</NumberOfInputs>
    <Inputs><Input Graph="G1" Node="out"/></Inputs>
    <Element Name="down" Type="ResamplingDecimator">
      <Properties Factor=")" << f << R"(" Order=")" << 24 * factor << R"(" Attenuation="70" )" << corners << R"(/>
      <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
    </Element>
    <Output><Node Name="out" Element="down" Index="0"/></Output>
  </Graph>
</Graphs>
<Outputs><Output Graph="G2" Node="out"/></Outputs>
<Controls/>
</System>)";
    return text.str();
}

}  // namespace

TEST(ResamplingFilters, OversamplingSystemThroughTheDriverKeepsASineAtUnity) {
    struct Case {
        int factor;
        std::string corners;
    };
    // Relative corners are fractions of the host rate; absolute ones are in Hz.
    for (const Case& c : {Case{2, R"(RelativeCornerFrequency="0.45")"}, Case{4, R"(RelativeCornerFrequency="0.45")"},
                          Case{8, R"(RelativeCornerFrequency="0.45")"}, Case{2, R"(AbsoluteCornerFrequency="20000")"}}) {
        std::shared_ptr<Driver> driver = Driver::create();
        std::istringstream description(oversamplingSystem(c.factor, c.corners));
        driver->init(description);
        driver->setSamplingRate(48000.0f);
        driver->setMaxBlockSize(256);
        ASSERT_EQ(driver->getMultipliers().size(), 2u);
        EXPECT_DOUBLE_EQ(driver->getMultipliers()[1], c.factor);  // G2 runs at the high rate

        const double amplitude = 0.5, frequency = 1000.0, rate = 48000.0;
        const size_t total = 48000;
        std::vector<scalar> input(total), output;
        for (size_t i = 0; i < total; ++i)
            input[i] = static_cast<scalar>(amplitude * std::sin(2.0 * M_PI * frequency * i / rate));
        // Blocks of wandering length, as hosts send them.
        const size_t lengths[] = {256, 100, 7, 256, 31, 128};
        size_t at = 0, block = 0;
        long allocationsInSteadyState = 0;
        while (at < total) {
            size_t n = std::min(lengths[block++ % 6], total - at);
            std::vector<scalar*> inputs{input.data() + at};
            const long before = allocations.load();
            driver->process(inputs, n);
            if (block > 12) allocationsInSteadyState += allocations.load() - before;
            const scalar* out = driver->getOutputs()[0];
            output.insert(output.end(), out, out + n);
            at += n;
        }
        EXPECT_EQ(allocationsInSteadyState, 0);
        ASSERT_EQ(output.size(), total);

        // Amplitude and phase by projection on the sine and cosine over whole periods, after the
        // filters' delay has passed.
        double s = 0.0, co = 0.0;
        const size_t from = 4800, to = total;  // 44 periods of 48 samples… rounded to periods
        const size_t end = from + (to - from) / 48 * 48;
        for (size_t i = from; i < end; ++i) {
            const double t = 2.0 * M_PI * frequency * i / rate;
            s += output[i] * std::sin(t);
            co += output[i] * std::cos(t);
        }
        const double measured = 2.0 * std::sqrt(s * s + co * co) / static_cast<double>(end - from);
        const double gainDb = 20.0 * std::log10(measured / amplitude);
        bool finite = true;
        for (scalar v : output) finite = finite && std::isfinite(v);
        EXPECT_TRUE(finite);
        EXPECT_LT(std::fabs(gainDb), 0.1) << "factor " << c.factor;
        std::printf("[ info ] factor %d (%s): 1 kHz at %.4f dB\n", c.factor, c.corners.c_str(), gainDb);
    }
}
