// The complete amplifier through its VST2 interface, as a host runs it (48 kHz, blocks of 256,
// default controls unless a row says otherwise): start-up and rate changes out of silence, knobs
// moved by automation, level and harmonic distortion against drive, the CPU modes, aliasing against
// the oversampling factor (the switches' routing and their every position, the cabinet's tail: the
// plugin suite).  The assertions hold whatever the exact tube data.
//
// Spectra are plain DFTs over one-second windows: 220 Hz and 5 kHz complete whole periods, so every
// harmonic (and every alias, on a multiple of 1 kHz) falls exactly on a bin, with no window function.

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"
#include "support/AllocationCounter.h"

using testhost::Instance;

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

constexpr double kRate = 48000.0;
constexpr size_t kBlock = 256;
constexpr size_t kSecond = 48000;

typedef std::vector<std::pair<Parameter, float>> Settings;
typedef std::function<void(Instance&, size_t)> BeforeBlock;

// What a host does before the first block, with the parameters restored before resume.
void start(Instance& plugin, float rate, int block, const Settings& settings) {
    plugin.dispatch(effOpen);
    for (const auto& setting : settings) plugin.setParameter(setting.first, setting.second);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate);
    plugin.dispatch(effSetBlockSize, 0, block);
    plugin.dispatch(effMainsChanged, 0, 1);
}

// Output 0 for the input on both channels, in blocks of `block`; beforeBlock runs before each
// block with its index, to turn controls while audio runs.
std::vector<float> run(Instance& plugin, const std::vector<float>& input, size_t block, const BeforeBlock& beforeBlock = nullptr) {
    std::vector<float> out(input.size()), right(block);
    for (size_t at = 0, b = 0; at < input.size(); at += block, ++b) {
        if (beforeBlock) beforeBlock(plugin, b);
        float* inputs[2] = {const_cast<float*>(input.data()) + at, const_cast<float*>(input.data()) + at};
        float* outputs[2] = {out.data() + at, right.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(std::min(block, input.size() - at)));
    }
    return out;
}

// Output 0 of a fresh instance at 48 kHz in blocks of 256, the input on both channels.
std::vector<float> render(const std::vector<float>& input, const Settings& settings, const BeforeBlock& beforeBlock = nullptr) {
    Instance plugin;
    start(plugin, static_cast<float>(kRate), static_cast<int>(kBlock), settings);
    return run(plugin, input, kBlock, beforeBlock);
}

std::vector<float> sine(double frequency, double levelDbfs, size_t frames) {
    const double amplitude = std::pow(10.0, levelDbfs / 20.0);
    std::vector<float> x(frames);
    for (size_t i = 0; i < frames; ++i) x[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * double(i) / kRate));
    return x;
}

double dbfs(double amplitude) { return 20.0 * std::log10(std::fmax(amplitude, 1e-30)); }

// Mean square of x[start .. start + n).
double meanSquare(const std::vector<float>& x, size_t start, size_t n) {
    double sum = 0;
    for (size_t i = 0; i < n; ++i) sum += double(x[start + i]) * x[start + i];
    return sum / double(n);
}

// The largest step |x[n] - x[n-1]| for n in [from, to).
double largestStep(const std::vector<float>& x, size_t from, size_t to) {
    double s = 0;
    for (size_t n = std::max<size_t>(from, 1); n < to && n < x.size(); ++n) s = std::fmax(s, std::fabs(double(x[n]) - x[n - 1]));
    return s;
}

// The DFT of x over its last second at one frequency, as a peak amplitude.
double amplitudeAt(const std::vector<float>& x, double frequency) {
    double re = 0, im = 0;
    const size_t start = x.size() - kSecond;
    for (size_t i = 0; i < kSecond; ++i) {
        const double phase = 2.0 * M_PI * frequency / kRate * double(i);
        re += x[start + i] * std::cos(phase);
        im -= x[start + i] * std::sin(phase);
    }
    return std::hypot(re, im) * (frequency == 0.0 ? 1.0 : 2.0) / double(kSecond);
}

// Over the last second of x against the harmonic series of f (below 24 kHz), DC included: the
// fundamental's peak amplitude, the THD and the energy off the series (aliases, noise), in dB.
void analyse(const std::vector<float>& x, double f, double& fundamental, double& thdDb, double& offSeriesDb) {
    const double dc = amplitudeAt(x, 0.0);
    double harmonics = 0, series = dc * dc;
    for (int k = 1; k * f < kRate / 2; ++k) {
        const double a = amplitudeAt(x, k * f);
        if (k == 1)
            fundamental = a;
        else
            harmonics += 0.5 * a * a;
        series += 0.5 * a * a;
    }
    thdDb = 10.0 * std::log10(harmonics / (0.5 * fundamental * fundamental));
    offSeriesDb = 10.0 * std::log10((meanSquare(x, x.size() - kSecond, kSecond) - series) / series);
}

::testing::AssertionResult finiteAndBounded(const std::vector<float>& x, float bound) {
    for (size_t i = 0; i < x.size(); ++i)
        if (!std::isfinite(x[i]) || std::fabs(x[i]) >= bound) return ::testing::AssertionFailure() << "sample " << i << ": " << x[i];
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(Startup, SilenceInGivesSilenceOutFromTheFirstSampleAndAfterARateChange) {
    // 200 ms of silence into a new instance, then again after the host doubled its rate; rates the
    // host cannot play at (found by the dispatcher's fuzz target) are ignored.  -120 dBFS: far
    // below any converter, far above what a settled chain leaves in floats.
    struct Case {
        float rate;
        int block;
        float cabinet, newRate;
    };
    const Case cases[] = {{48000, 256, 0, 96000}, {48000, 256, 1, 96000}, {44100, 64, 1, 88200}, {96000, 1024, 0, 192000},
                          {48000, 256, 1, std::nanf("")}, {48000, 256, 1, 0}, {48000, 256, 1, -48000},
                          {48000, 256, 1, 1e30f}, {48000, 256, 1, INFINITY}, {48000, 256, 1, 999}, {48000, 256, 1, 1e6f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.rate << " Hz, blocks of " << c.block << ", cabinet " << c.cabinet
                                          << ", then " << c.newRate << " Hz");
        Instance plugin;
        start(plugin, c.rate, c.block, {{kCabinet, c.cabinet}});
        const std::vector<float> silence(static_cast<size_t>(c.rate / 5.0f), 0.0f);
        EXPECT_TRUE(finiteAndBounded(run(plugin, silence, size_t(c.block)), 1e-6f));
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, c.newRate);
        plugin.dispatch(effMainsChanged, 0, 1);
        EXPECT_TRUE(finiteAndBounded(run(plugin, silence, size_t(c.block)), 1e-6f));
    }
}

TEST(Glide, AKnobMovedByAutomationLeavesNoStepAtTheBlockWhereItMoves) {
    // A 220 Hz tone at -18 dBFS; every three to six blocks one of the four knobs jumps to a random
    // value (not so low that the tone is gone).  The step right after a change (its first eight
    // samples) is set against the largest step of the block before and of the rest of the block:
    // a knob that jumps makes the first stand out, one that glides leaves it among the others.
    // 2 %: what the tone's sampling phase alone moves the largest step of a window by.
    const std::vector<float> in = sine(220.0, dbfs(0.125), 400 * kBlock);
    for (float cpu : {0.0f, 1.0f}) {
        std::mt19937 random(12);
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        const Parameter knobs[] = {kGain, kFeedback, kVol, kInput};
        std::vector<size_t> changed;
        const std::vector<float> out = render(in, {{kCPU, cpu}, {kCabinet, 0.0f}}, [&](Instance& plugin, size_t b) {
            // A quarter second to settle at the start.
            if (b >= 48 && (changed.empty() || b - changed.back() >= 3 + random() % 4)) {
                plugin.setParameter(knobs[random() % 4], 0.2f + 0.8f * value(random));
                changed.push_back(b);
            }
        });
        int louder = 0;
        for (size_t b : changed) {
            const size_t s = b * kBlock;
            const double others = std::fmax(largestStep(out, s - kBlock, s), largestStep(out, s + 8, s + kBlock));
            if (largestStep(out, s, s + 8) > 1.02 * others) ++louder;
        }
        EXPECT_EQ(louder, 0) << "of " << changed.size() << " changes, CPU " << cpu;
    }
}

TEST(Startup, TheFirstBlockAfterAResumeAllocatesNothing) {
    // Resume leaves nothing for the first block to redo: the controls' first values, the
    // oversampling factor, the switches put back after settling (later blocks: the plugin suite).
    for (float stereo : {0.0f, 1.0f}) {
        Instance plugin;
        start(plugin, 48000.0f, 256, {{kStereo, stereo}, {kOversampling, 1.0f}});
        std::vector<float> in(256, 0.1f), out0(256), out1(256);
        float* inputs[2] = {in.data(), in.data()};
        float* outputs[2] = {out0.data(), out1.data()};
        allocation::Counter counter;
        plugin.process(inputs, outputs, 256);
        EXPECT_EQ(counter.allocations(), 0) << "stereo " << stereo;
    }
}

TEST(AmpSystem, LevelAndDistortionRiseWithDriveAndTheCpuModesPartOnlyThen) {
    const float volumes[] = {0.25f, 0.5f, 0.75f, 1.0f};
    const double levels[] = {-24.0, -12.0, -6.0};
    std::vector<float> y[2][4][3];
    for (int cpu = 0; cpu < 2; ++cpu) {
        double thd[4][3], out[4][3];
        for (int v = 0; v < 4; ++v) {
            for (int l = 0; l < 3; ++l) {
                y[cpu][v][l] = render(sine(220.0, levels[l], 3 * kSecond / 2), {{kGain, volumes[v]}, {kCPU, float(cpu)}});
                EXPECT_TRUE(finiteAndBounded(y[cpu][v][l], 1.0f)) << volumes[v] << " " << levels[l] << " CPU " << cpu;
                double fundamental, offSeries;
                analyse(y[cpu][v][l], 220.0, fundamental, thd[v][l], offSeries);
                out[v][l] = dbfs(fundamental);
            }
            // A louder input distorts more at every setting of the knob, and the stages compress:
            // 18 dB more input gives clearly less than 18 dB more output.
            EXPECT_LT(thd[v][0], thd[v][1]) << volumes[v] << " CPU " << cpu;
            EXPECT_LT(thd[v][1], thd[v][2]) << volumes[v] << " CPU " << cpu;
            EXPECT_LT(out[v][2] - out[v][0], 18.0 - 3.0) << volumes[v] << " CPU " << cpu;
        }
        // More Volume, more distortion, at every input level.  In high-CPU mode the power stage's
        // curve has stretches that rise, so a stage already in full saturation may distort a
        // little less when pushed harder: half a decibel is allowed there.
        for (int l = 0; l < 3; ++l)
            for (int v = 0; v + 1 < 4; ++v)
                EXPECT_LT(thd[v][l], thd[v + 1][l] + (cpu ? 0.5 : 0.0)) << volumes[v] << " " << levels[l] << " CPU " << cpu;
        EXPECT_GT(thd[3][2] - thd[0][0], 20.0) << "CPU " << cpu;  // the cleanest and the most driven
    }
    // The CPU modes: without grid current (the quietest row) the two branches are the same
    // networks and the same curves; with it (the loudest), the loaded networks and the high-CPU
    // curves change the sound audibly.  The difference over the last second, against the low mode.
    auto apart = [&](int v, int l) {
        std::vector<float> d(y[0][v][l].size());
        for (size_t i = 0; i < d.size(); ++i) d[i] = y[1][v][l][i] - y[0][v][l][i];
        return 10.0 * std::log10(meanSquare(d, kSecond / 2, kSecond) / meanSquare(y[0][v][l], kSecond / 2, kSecond));
    };
    EXPECT_LT(apart(0, 0), -60.0);
    EXPECT_GT(apart(3, 2), -20.0);
}

TEST(AmpSystem, AliasingFallsAsTheFactorRisesAndSwitchingItLeavesNoGap) {
    // The cabinet out: its top would weigh the aliases by where they land; the stages' aliasing is
    // what the factor governs.
    const std::vector<float> in = sine(5000.0, -6.0, 3 * kSecond / 2);
    double aliasDb[3];
    for (int i = 0; i < 3; ++i) {
        const std::vector<float> y = render(in, {{kGain, 1.0f}, {kInput, 1.0f}, {kOversampling, 0.5f * i}, {kCabinet, 0.0f}});
        EXPECT_TRUE(finiteAndBounded(y, 2.0f));
        double fundamental, thd;
        analyse(y, 5000.0, fundamental, thd, aliasDb[i]);
    }
    EXPECT_GT(aliasDb[0], aliasDb[1] + 3.0);
    EXPECT_GT(aliasDb[1], aliasDb[2] + 3.0);

    // Two seconds of a 220 Hz tone; the factor steps every 25 blocks (133 ms) through 2, 8, 4, 2, ...
    const float cycle[] = {0.0f, 1.0f, 0.5f};
    const std::vector<float> y = render(sine(220.0, -12.0, 2 * kSecond), {}, [&](Instance& plugin, size_t block) {
        if (block % 25 == 0) plugin.setParameter(kOversampling, cycle[(block / 25) % 3]);
    });
    EXPECT_TRUE(finiteAndBounded(y, 1.0f));
    // After the cabinet's own delay, every 5 ms (a period of 220 Hz) carries signal.
    const double mean = meanSquare(y, kSecond / 2, kSecond);
    double quietest = mean;
    for (size_t at = kSecond / 10; at + 240 <= y.size(); at += 60) quietest = std::fmin(quietest, meanSquare(y, at, 240));
    EXPECT_GT(quietest, mean * 0.25);
}
