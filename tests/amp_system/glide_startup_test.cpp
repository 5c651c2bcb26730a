// What a recording hears around the controls and at start-up, through the VST2 interface:
// a knob turned by hand or by automation leaves no click at the block where it moves, and a new
// instance (or one given a new rate) puts out silence for silence from its very first sample.

#include <cmath>
#include <cstdio>
#include <ctime>
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

double dbfs(double amplitude) { return 20.0 * std::log10(std::fmax(amplitude, 1e-30)); }

// Processor milliseconds of a resume, for the record only.
double resume(Instance& plugin) {
    const std::clock_t begin = std::clock();
    plugin.dispatch(effMainsChanged, 0, 1);
    return 1000.0 * double(std::clock() - begin) / CLOCKS_PER_SEC;
}

// What a host does before the first block, with the parameters restored before resume.
double start(Instance& plugin, float rate, int block, const std::vector<std::pair<Parameter, float>>& settings) {
    plugin.dispatch(effOpen);
    for (const auto& setting : settings) plugin.setParameter(setting.first, setting.second);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate);
    plugin.dispatch(effSetBlockSize, 0, block);
    return resume(plugin);
}

// Output 0 for `frames` of silence, in blocks of `block`.
std::vector<float> silence(Instance& plugin, size_t frames, size_t block) {
    std::vector<float> in(block, 0.0f), right(block), out(frames);
    for (size_t at = 0; at < frames; at += block) {
        const size_t n = std::min(block, frames - at);
        float* inputs[2] = {in.data(), in.data()};
        float* outputs[2] = {out.data() + at, right.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(n));
    }
    return out;
}

double peak(const std::vector<float>& x) {
    double p = 0;
    for (float v : x) p = std::fmax(p, std::fabs(double(v)));
    return p;
}

// The largest step |x[n] - x[n-1]| for n in [from, to).
double largestStep(const std::vector<float>& x, size_t from, size_t to) {
    double s = 0;
    for (size_t n = std::max<size_t>(from, 1); n < to && n < x.size(); ++n)
        s = std::fmax(s, std::fabs(double(x[n]) - double(x[n - 1])));
    return s;
}

}  // namespace

TEST(Startup, SilenceInGivesSilenceOutFromTheFirstSample) {
    // The first 100 ms of a new instance fed silence, with the cabinet off and on, at three rates
    // and block sizes; then the same instance after the host changed its rate.
    struct Case {
        float rate;
        int block;
        float cabinet;
    };
    const Case cases[] = {{48000.0f, 256, 0.0f}, {48000.0f, 256, 1.0f}, {44100.0f, 64, 1.0f}, {96000.0f, 1024, 0.0f}};
    for (const Case& c : cases) {
        Instance plugin;
        const double firstResume = start(plugin, c.rate, c.block, {{kCabinet, c.cabinet}});
        const size_t tenth = static_cast<size_t>(c.rate / 10.0f);
        const double first = peak(silence(plugin, tenth, static_cast<size_t>(c.block)));

        // The same rate again: nothing to settle.
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, c.rate);
        const double sameRateResume = resume(plugin);
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, c.rate * 2.0f);
        const double newRateResume = resume(plugin);
        const double afterRateChange = peak(silence(plugin, 2 * tenth, static_cast<size_t>(c.block)));
        std::printf("Silence at %.0f Hz, blocks of %d, cabinet %s: first 100 ms peak %.1f dBFS; at twice the rate %.1f dBFS"
                    " (resume %.1f ms, again %.2f ms, at the new rate %.1f ms)\n",
                    double(c.rate), c.block, c.cabinet > 0.5f ? "on" : "off", dbfs(first), dbfs(afterRateChange),
                    firstResume, sameRateResume, newRateResume);
        // -120 dBFS: far below any converter, far above what a settled chain leaves in floats.
        EXPECT_LT(first, 1e-6) << c.rate << " " << c.cabinet;
        EXPECT_LT(afterRateChange, 1e-6) << c.rate << " " << c.cabinet;
    }
}

TEST(Glide, AKnobMovedByAutomationLeavesNoStepAtTheBlockWhereItMoves) {
    // A 220 Hz tone at -18 dBFS; every few blocks one of the four knobs jumps to a random value.
    // The step right after a change (its first eight samples) is set against the largest step
    // of the block before and of the rest of the block: a knob that jumps makes the first stand
    // out, one that glides leaves it among the others.
    for (float cpu : {0.0f, 1.0f}) {
        Instance plugin;
        start(plugin, float(kRate), int(kBlock), {{kCPU, cpu}, {kCabinet, 0.0f}});
        const size_t blocks = 400;
        std::vector<float> in(blocks * kBlock), out(blocks * kBlock), right(kBlock);
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = float(0.125 * std::sin(2.0 * M_PI * 220.0 * double(i) / kRate));
        std::mt19937 random(12);
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        const Parameter knobs[] = {kGain, kFeedback, kVol, kInput};
        std::vector<size_t> changed;
        for (size_t b = 0; b < blocks; ++b) {
            // A quarter second to settle at the start, then a change every three to six blocks.
            if (b >= 48 && (changed.empty() || b - changed.back() >= 3 + random() % 4)) {
                // Not so low that the tone is gone: a step against nothing says nothing.
                plugin.setParameter(knobs[random() % 4], 0.2f + 0.8f * value(random));
                changed.push_back(b);
            }
            float* inputs[2] = {in.data() + b * kBlock, in.data() + b * kBlock};
            float* outputs[2] = {out.data() + b * kBlock, right.data()};
            plugin.process(inputs, outputs, int32_t(kBlock));
        }
        int louder = 0;
        double worst = 0;
        for (size_t b : changed) {
            const size_t s = b * kBlock;
            const double atChange = largestStep(out, s, s + 8);
            const double others = std::fmax(largestStep(out, s - kBlock, s), largestStep(out, s + 8, s + kBlock));
            const double ratio = atChange / others;
            worst = std::fmax(worst, ratio);
            // 2 %: what the tone's sampling phase alone moves the largest step of a window by.
            if (ratio > 1.02) ++louder;
        }
        std::printf("CPU %s: %d of %zu changes step more right after the change than elsewhere in the block; "
                    "worst %.2fx\n",
                    cpu > 0.5f ? "high" : "low", louder, changed.size(), worst);
        EXPECT_EQ(louder, 0) << "CPU " << cpu;
    }
}

TEST(Startup, TheFirstBlockAfterAResumeAndAGlideAllocateNothing) {
    // Resume leaves nothing for the first block to redo (the controls' first values, the
    // oversampling factor, the switches put back after settling), and a glide is plain arithmetic.
    for (float stereo : {0.0f, 1.0f}) {
        Instance plugin;
        start(plugin, 48000.0f, 256, {{kStereo, stereo}, {kOversampling, 1.0f}});
        std::vector<float> in(256, 0.1f), out0(256), out1(256);
        float* inputs[2] = {in.data(), in.data()};
        float* outputs[2] = {out0.data(), out1.data()};
        {
            allocation::Counter counter;
            plugin.process(inputs, outputs, 256);
            EXPECT_EQ(counter.allocations(), 0) << "first block, stereo " << stereo;
        }
        plugin.setParameter(kGain, 0.9f);
        plugin.setParameter(kVol, 0.1f);
        allocation::Counter counter;
        for (int block = 0; block < 8; ++block) plugin.process(inputs, outputs, 256);
        EXPECT_EQ(counter.allocations(), 0) << "gliding, stereo " << stereo;
    }
}

TEST(Startup, ARateNoHostPlaysAtIsIgnored) {
    // Found by the dispatcher's fuzz target: a rate of NaN reached the cabinet's resampling.
    // The instance keeps the rate it had and stays quiet and finite.
    const float nonsense[] = {std::nanf(""), 0.0f, -48000.0f, 1e30f, INFINITY, 999.0f, 1e6f};
    for (float rate : nonsense) {
        Instance plugin;
        start(plugin, 48000.0f, 256, {});
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        plugin.dispatch(effMainsChanged, 0, 1);
        const std::vector<float> out = silence(plugin, 4800, 256);
        EXPECT_LT(peak(out), 1e-6) << rate;
    }
}
