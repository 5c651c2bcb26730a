// WaveConvolver: trim, mean removal, gain, selection, rate conversion of a response, its
// messages, and a File response run end to end through the Driver.

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <cstdio>

#include <unistd.h>

#include "engine/Context.h"
#include "engine/Driver.h"
#include "filters/WaveConvolver.h"
#include "support/TestSupport.h"
#include "support/WavBytes.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using ormtest::magnitudeDb;

namespace {

std::shared_ptr<DSPContext> noContext;

std::unique_ptr<WaveConvolver> makeWave(const Properties& properties) {
    std::unique_ptr<WaveConvolver> wave(new WaveConvolver());
    wave->init("WV", properties, noContext);
    return wave;
}

// A response held in memory, with the given changes.
Properties memoryProperties(std::initializer_list<std::pair<const char*, std::string>> changes = {}) {
    Properties p;
    p["Location"] = "Memory";
    p["ImpulseResponses"] = "ir";
    p["MaxIRSize"] = "8192";
    p["Scale"] = "false";
    for (const auto& [name, value] : changes) p[name] = value;
    return p;
}

void add(WaveConvolver& wave, const std::string& name, scalar rate, const std::vector<scalar>& samples) {
    wave.addImpulseResponse({name, rate, std::make_shared<std::vector<scalar>>(samples)});
}

// Sizes the element's blocks, then sets its rate, which loads the selected response.
void start(WaveConvolver& wave, float rate, int maxBlock = 64) {
    wave.setMaxBlockSize(maxBlock);
    wave.setSamplingRate(rate);
}

// Runs one block through the element and returns its output.
std::vector<scalar> run(WaveConvolver& wave, std::vector<scalar> in) {
    std::vector<scalar*> inputs{in.data()};
    wave.process(inputs, in.size());
    const scalar* out = wave.getOutput(0);
    return std::vector<scalar>(out, out + in.size());
}

std::vector<scalar> impulse(size_t n) {
    std::vector<scalar> v(n, 0.0f);
    v[0] = 1.0f;
    return v;
}

// A band-limited test response at 44100 Hz: a Kaiser-windowed sinc pulse (flat to 0.92 of
// Nyquist, below -120 dB from 0.98) centred at sample 200, through two resonances (1 kHz and
// 8 kHz) of an all-pole filter, so that the magnitude has no notches.  8192 samples, decayed far
// below float resolution at the end.
std::vector<scalar> testResponse() {
    const int taps = 401, centre = 200;
    const double cutoff = 0.95, beta = 0.1102 * (120.0 - 8.7);
    std::vector<double> x(8192, 0.0);
    for (int n = 0; n < taps; ++n) {
        const double t = n - centre;
        const double sinc = t == 0 ? cutoff : std::sin(M_PI * cutoff * t) / (M_PI * t);
        const double r = t / centre;
        x[static_cast<size_t>(n)] = sinc * std::cyl_bessel_i(0.0, beta * std::sqrt(1.0 - r * r)) /
                                    std::cyl_bessel_i(0.0, beta);
    }
    ormtest::DifferenceEquation low({-2 * 0.995 * std::cos(2 * M_PI * 1000 / 44100), 0.995 * 0.995}, {1.0}),
        high({-2 * 0.9 * std::cos(2 * M_PI * 8000 / 44100), 0.9 * 0.9}, {1.0});
    std::vector<scalar> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) y[n] = static_cast<scalar>(0.01 * high.step(low.step(x[n])));
    return y;
}

}  // namespace

TEST(WaveConvolver, TrimMeanRemovalGainAndReloads) {
    // (1, 0, 0, 0.5) keeps four samples, less 0.375 each, then the gain.
    auto wave = makeWave(memoryProperties({{"ImpulseResponses", "ir|other"}, {"Scale", "true"}, {"Gain", "0.5"}}));
    add(*wave, "ir", 44100.0f, {1.0f, 0.0f, 0.0f, 0.5f, 1e-16f, -1e-15f});
    add(*wave, "other", 44100.0f, {0.0f, 2.0f});
    start(*wave, 44100.0f);
    EXPECT_EQ(wave->getConvolver().getIRLength(), 4u);
    auto out = run(*wave, impulse(8));
    const float expected[4] = {0.3125f, -0.1875f, -0.1875f, 0.0625f};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[static_cast<size_t>(i)], expected[i], 1e-7);
    EXPECT_NEAR(out[4], 0.0f, 1e-7);

    // The same rate again keeps response and history: the tail of the last impulse goes on.
    std::vector<scalar> first = {1.0f, 0.0f};
    run(*wave, first);
    wave->setSamplingRate(44100.0f);
    EXPECT_NEAR(run(*wave, {0.0f})[0], expected[2], 1e-7);

    // Selecting reloads and clears the history.  Halves round away from zero; the count itself
    // passes the bound and fails at the list of names.
    wave->propertyChanged("Selected", 0.6f);
    EXPECT_EQ(wave->getSelected(), 1);
    out = run(*wave, impulse(4));
    EXPECT_NEAR(out[0], -0.5f, 1e-7);  // (0, 2) less its mean 1, times 0.5
    EXPECT_NEAR(out[1], 0.5f, 1e-7);
    EXPECT_EQ(orm_test::messageOf([&] { wave->propertyChanged("Selected", 1.5f); }), "invalid vector<T> subscript");
    EXPECT_EQ(orm_test::messageOf([&] { wave->propertyChanged("Selected", 3.0f); }),
              "WaveConvolver: Invalid selection: 3 max selection value 2");

    // A longer response is cut to MaxIRSize.
    auto cut = makeWave(memoryProperties({{"MaxIRSize", "3"}}));
    add(*cut, "ir", 44100.0f, {1, 2, 3, 4, 5});
    start(*cut, 44100.0f);
    EXPECT_EQ(cut->getConvolver().getIRLength(), 3u);

    // With MaxIRRate the limit is a length in time: 8192 samples at 44.1 kHz are 71330 at
    // 384 kHz and 1486 at 8 kHz; a response as long as the limit at every rate is never cut.
    for (float rate : {8000.0f, 384000.0f}) {
        auto wave = makeWave(memoryProperties({{"MaxIRRate", "44100"}}));
        add(*wave, "ir", rate, std::vector<scalar>(static_cast<size_t>(std::lround(8192.0 * rate / 44100)), 0.5f));
        start(*wave, rate);
        EXPECT_EQ(wave->getConvolver().getMaxIRSize(), static_cast<uint64_t>(std::lround(8192.0 * rate / 44100))) << rate;
        EXPECT_EQ(wave->getConvolver().getIRLength(), wave->getConvolver().getMaxIRSize()) << rate;
    }
    EXPECT_EQ(orm_test::messageOf([&] { makeWave(memoryProperties({{"MaxIRRate", "0"}})); }),
              "WaveConvolver: MaxIRRate must be greater than 0. WaveConvolver name=WV MaxIRRate=0");
}

TEST(WaveConvolver, ResamplingKeepsLengthAlignmentMagnitudeAndLevel) {
    const std::vector<scalar> response = testResponse();
    const double src = 44100.0;
    for (double dst : {48000.0, 88200.0, 96000.0}) {
        auto out = WaveConvolver::resample(response, src, dst);
        const size_t expectedLength = static_cast<size_t>(dst / src * response.size() + 0.5);
        EXPECT_EQ(out.size(), expectedLength) << dst;

        // An impulse stays at sample 0, at the level src/dst.
        auto pulse = WaveConvolver::resample(impulse(1000), src, dst);
        size_t peak = 0;
        for (size_t i = 1; i < pulse.size(); ++i)
            if (std::fabs(pulse[i]) > std::fabs(pulse[peak])) peak = i;
        EXPECT_EQ(peak, 0u) << dst;
        EXPECT_NEAR(pulse[0] * dst / src, 1.0, 0.02) << dst;

        // The magnitude response below 0.9 of the lower Nyquist frequency, and the DC level.
        const std::vector<scalar> none;
        double worst = 0.0;
        for (double f = 0.0; f <= 0.9 * src / 2; f += 0.9 * src / 2 / 200)
            worst = std::max(worst, std::fabs(magnitudeDb(none, out, f / dst) - magnitudeDb(none, response, f / src)));
        double sumIn = 0.0, sumOut = 0.0;
        for (scalar x : response) sumIn += x;
        for (scalar x : out) sumOut += x;
        EXPECT_LT(worst, 0.01) << dst;
        EXPECT_NEAR(sumOut / sumIn, 1.0, 1e-5) << dst;
    }
}

TEST(WaveConvolver, FileResponseEndToEndThroughTheDriver) {
    using namespace wavbytes;
    // Stereo 16-bit at 44100 Hz, run at 44100 Hz: the first channel is the response, its zeros at
    // the end trimmed, the second dropped; no resampling, so the output is the direct
    // convolution scaled by the gain.
    const int left[8] = {16384, -8192, 4096, -2048, 1, 0, 0, 0};
    std::vector<double> h;
    Bytes samples;
    for (int v : left) {
        put16(samples, static_cast<uint32_t>(v));
        put16(samples, static_cast<uint32_t>(-32768));
        if (v) h.push_back(v / 32768.0);
    }
    std::string path = ::testing::TempDir() + "orm_driver_" + std::to_string(getpid()) + ".wav";
    writeFile(path, wav(formatBody(1, 2, 44100, 16), samples));

    const std::string graph = R"(<Graph Name="Cab" Type="DSP"><NumberOfInputs>1</NumberOfInputs>
        <Inputs><Input Graph="System" Node="0"/></Inputs>
        <Element Type="WaveConvolver" Name="WV">
          <Properties Location="File" ImpulseResponses=")" + path + R"(" MaxIRSize="8192" Gain="0.5"/>
          <Inputs><Input Port="in" Element="Graph" Output="0"/></Inputs>
        </Element>
        <Output><Node Name="out" Element="WV" Port="out"/></Output></Graph>)";
    std::shared_ptr<Driver> driver;
    ASSERT_NO_THROW(driver = orm_test::loadSystem(orm_test::systemOf(graph, R"(<Output Graph="Cab" Node="out"/>)")));
    driver->setSamplingRate(44100.0f);
    driver->setMaxBlockSize(256);
    auto* wave = dynamic_cast<WaveConvolver*>(driver->getGraph("Cab")->getContext()->getElement("WV"));
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->getConvolver().getIRLength(), h.size());

    std::mt19937 random(11);
    std::vector<double> input;
    double worst = 0.0;
    for (size_t frames : {256u, 100u, 7u, 256u}) {
        std::vector<scalar> in = ormtest::randomValues(random, frames);
        std::vector<scalar*> inputs{in.data()};
        driver->process(inputs, frames);
        const scalar* out = driver->getOutputs()[0];
        for (size_t i = 0; i < frames; ++i) {
            input.push_back(in[i]);
            size_t t = input.size() - 1;
            double reference = 0.0;
            for (size_t k = 0; k < h.size() && k <= t; ++k) reference += 0.5 * h[k] * input[t - k];
            worst = std::max(worst, std::fabs(reference - out[i]));
        }
    }
    EXPECT_LT(worst, 1e-6);
    // Another rate resamples the file's response.
    driver->setSamplingRate(88200.0f);
    EXPECT_GT(wave->getConvolver().getIRLength(), h.size());
    EXPECT_LE(wave->getConvolver().getIRLength(), 16u);
    std::remove(path.c_str());
}
