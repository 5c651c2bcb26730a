// Audio through the module as a host passes it: the gain of the linear interim system, mono and
// stereo paths, odd buffer pointers, block sizes, suspend, several instances, no allocation.
//
// Expected gains come from the control mappings, written here independently: Input 0..4 with 1
// at the centre, the volume pot's knee at 0.1, feedback 1 - 0.39 x, output 0.002 x, and the
// cabinet's stand-in gain 0.25 (1 when the cabinet is switched out).

#include <xmmintrin.h>

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using testhost::Channels;
using testhost::Instance;

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

struct Settings {
    double gain = 0.5, feedback = 1.0, vol = 0.5, cabinet = 1.0, input = 0.5;
};

double expectedGain(const Settings& s) {
    double input = s.input > 0.5 ? s.input * 6 - 2 : s.input * 2;
    double wiper = s.gain >= 0.5 ? (s.gain - 0.5) * 1.8 + 0.1 : s.gain * 0.2;
    double feedback = 1 - s.feedback * 0.39;
    double vol = s.vol * 0.002;
    double cabinet = s.cabinet >= 0.5 ? 0.25 : 1.0;
    return input * wiper * feedback * vol * cabinet;
}

std::vector<float> tone(size_t frames, double frequency, double amplitude = 0.5, size_t offset = 0) {
    std::vector<float> samples(frames);
    for (size_t i = 0; i < frames; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * frequency * double(i + offset) / 48000.0));
    return samples;
}

// Every sample of out equals gain * in within a few float roundings.
::testing::AssertionResult scaled(const std::vector<float>& out, const std::vector<float>& in, double gain,
                                  size_t frames) {
    for (size_t i = 0; i < frames; ++i) {
        double want = gain * in[i];
        if (std::fabs(out[i] - want) > 4e-7 * std::fabs(want) + 1e-30)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i] << " against " << want;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(PluginProcessing, GainFollowsTheControls) {
    Instance plugin;
    plugin.start(48000.0f, 256);
    std::vector<float> in = tone(256, 440.0), out(256), right(256);
    float* inputs[2] = {in.data(), in.data()};
    float* outputs[2] = {out.data(), right.data()};

    Settings s;
    plugin.process(inputs, outputs, 256);
    // Defaults: 1 * 0.1 * 0.61 * 0.001 * 0.25.
    EXPECT_NEAR(expectedGain(s), 1.525e-5, 1e-12);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));

    s.input = 0.75, s.gain = 1.0, s.feedback = 0.0, s.vol = 1.0;
    plugin.setParameter(kInput, 0.75f);
    plugin.setParameter(kGain, 1.0f);
    plugin.setParameter(kFeedback, 0.0f);
    plugin.setParameter(kVol, 1.0f);
    plugin.process(inputs, outputs, 256);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));  // 2.5 * 1 * 1 * 0.002 * 0.25

    s.input = 0.25, s.gain = 0.25;
    plugin.setParameter(kInput, 0.25f);
    plugin.setParameter(kGain, 0.25f);
    plugin.process(inputs, outputs, 256);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));

    // Cabinet out: the convolver graphs pass their input.
    s.cabinet = 0.0;
    plugin.setParameter(kCabinet, 0.0f);
    plugin.process(inputs, outputs, 256);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));

    // The high-CPU branch has the same gain in this system: only the switch and the Off flags
    // change.  A wrong mapping would leave the selected branch off and the output silent.
    plugin.setParameter(kCPU, 1.0f);
    plugin.process(inputs, outputs, 256);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));
    plugin.setParameter(kCPU, 0.0f);
    plugin.process(inputs, outputs, 256);
    EXPECT_TRUE(scaled(out, in, expectedGain(s), 256));

    // The oversampling factor reaches its target without disturbing the signal.
    for (float factor : {0.0f, 1.0f, 0.5f}) {
        plugin.setParameter(kOversampling, factor);
        plugin.process(inputs, outputs, 256);
        EXPECT_TRUE(scaled(out, in, expectedGain(s), 256)) << factor;
    }
}

TEST(PluginProcessing, StereoMonoAndTheCopyOfOutputZero) {
    Instance plugin;
    plugin.start(48000.0f, 128);
    std::vector<float> left = tone(128, 440.0), right = tone(128, 1000.0, 0.3), out0(128), out1(128);
    float* inputs[2] = {left.data(), right.data()};
    float* outputs[2] = {out0.data(), out1.data()};
    const double g = expectedGain(Settings());

    // Stereo off (the default): a stereo host still gets output 0 on both sides.
    plugin.process(inputs, outputs, 128);
    EXPECT_TRUE(scaled(out0, left, g, 128));
    EXPECT_EQ(out1, out0);

    plugin.setParameter(kStereo, 1.0f);
    plugin.process(inputs, outputs, 128);
    EXPECT_TRUE(scaled(out0, left, g, 128));
    EXPECT_TRUE(scaled(out1, right, g, 128));

    // A mono arrangement wins over the Stereo control.
    plugin.setArrangement(1, 1);
    EXPECT_EQ(plugin.lastArrangementAnswer, 1);
    plugin.process(inputs, outputs, 128);
    EXPECT_TRUE(scaled(out0, left, g, 128));
    EXPECT_EQ(out1, out0);

    // One in, two out leaves the flag as it was, and the answer is still yes.
    plugin.setArrangement(1, 2);
    EXPECT_EQ(plugin.lastArrangementAnswer, 1);
    plugin.process(inputs, outputs, 128);
    EXPECT_EQ(out1, out0);

    plugin.setArrangement(2, 2);
    plugin.process(inputs, outputs, 128);
    EXPECT_TRUE(scaled(out1, right, g, 128));

    plugin.setParameter(kStereo, 0.0f);
    plugin.process(inputs, outputs, 128);
    EXPECT_EQ(out1, out0);
}

TEST(PluginProcessing, NullAndAliasedPointers) {
    Instance plugin;
    plugin.start(48000.0f, 64);
    plugin.setParameter(kStereo, 1.0f);
    const double g = expectedGain(Settings());
    std::vector<float> left = tone(64, 440.0), right = tone(64, 1000.0, 0.3), out0(64), out1(64, 7.0f);

    // A null second input: the second chain gets input 0.
    float* nullSecond[2] = {left.data(), nullptr};
    float* outputs[2] = {out0.data(), out1.data()};
    plugin.process(nullSecond, outputs, 64);
    EXPECT_TRUE(scaled(out0, left, g, 64));
    EXPECT_TRUE(scaled(out1, left, g, 64));

    // The same pointer twice: likewise.
    float* same[2] = {right.data(), right.data()};
    plugin.process(same, outputs, 64);
    EXPECT_TRUE(scaled(out1, right, g, 64));

    // A null second output: nothing to write, no fault.
    std::vector<float> untouched(64, 7.0f);
    float* nullOut[2] = {out0.data(), nullptr};
    float* inputs[2] = {left.data(), right.data()};
    plugin.process(inputs, nullOut, 64);
    EXPECT_TRUE(scaled(out0, left, g, 64));

    // The same output twice: channel 0 is what lands there.
    float* sameOut[2] = {out0.data(), out0.data()};
    plugin.process(inputs, sameOut, 64);
    EXPECT_TRUE(scaled(out0, left, g, 64));

    // In place: the host's input buffers are its outputs.
    std::vector<float> a = left, b = right;
    float* inPlace[2] = {a.data(), b.data()};
    plugin.process(inPlace, inPlace, 64);
    EXPECT_TRUE(scaled(a, left, g, 64));
    EXPECT_TRUE(scaled(b, right, g, 64));
}

TEST(PluginProcessing, BlockSizesZeroFramesAndSuspend) {
    Instance plugin;
    plugin.start(44100.0f, 512);
    const double g = expectedGain(Settings());

    // Zero frames: nothing is written.
    Channels io(16, 3.0f);
    plugin.process(io.pointers, io.pointers, 0);
    EXPECT_EQ(io.left, std::vector<float>(16, 3.0f));
    EXPECT_EQ(io.right, std::vector<float>(16, 3.0f));

    // Any size up to the maximum; what the host did not ask for stays as it was.
    for (int frames : {1, 17, 64, 511, 512}) {
        std::vector<float> in = tone(512, 440.0), out(512, 9.0f), out1(512);
        float* inputs[2] = {in.data(), in.data()};
        float* outputs[2] = {out.data(), out1.data()};
        plugin.process(inputs, outputs, frames);
        EXPECT_TRUE(scaled(out, in, g, static_cast<size_t>(frames))) << frames;
        if (frames < 512) {
            EXPECT_EQ(out[static_cast<size_t>(frames)], 9.0f) << frames;
        }
    }

    // Suspended: blocks are refused, and the denormal bits stay set on that failure path.
    plugin.dispatch(effMainsChanged, 0, 0);
    _mm_setcsr(_mm_getcsr() & ~((1u << 15) | (1u << 6)));
    EXPECT_ANY_THROW(plugin.process(io.pointers, io.pointers, 16));
    EXPECT_EQ(_mm_getcsr() & ((1u << 15) | (1u << 6)), (1u << 15) | (1u << 6));

    // Resumed: a normal block restores the caller's MXCSR.
    plugin.dispatch(effMainsChanged, 0, 1);
    _mm_setcsr(_mm_getcsr() & ~((1u << 15) | (1u << 6)));
    EXPECT_NO_THROW(plugin.process(io.pointers, io.pointers, 16));
    EXPECT_EQ(_mm_getcsr() & ((1u << 15) | (1u << 6)), 0u);

    // The rate change path: suspend, new rate and block size, resume.
    plugin.dispatch(effMainsChanged, 0, 0);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, 96000.0f);
    plugin.dispatch(effSetBlockSize, 0, 2048);
    plugin.dispatch(effMainsChanged, 0, 1);
    std::vector<float> in = tone(2048, 440.0), out(2048), out1(2048);
    float* inputs[2] = {in.data(), in.data()};
    float* outputs[2] = {out.data(), out1.data()};
    plugin.process(inputs, outputs, 2048);
    EXPECT_TRUE(scaled(out, in, g, 2048));
}

TEST(PluginProcessing, ABlockPastTheMaximumIsFatalForTheInstance) {
    Instance plugin;
    plugin.start(48000.0f, 256);
    Channels big(1024, 0.1f);
    EXPECT_ANY_THROW(plugin.process(big.pointers, big.pointers, 1024));
    // The engine stays marked busy after a failed block, so suspend would wait for ever: a host
    // drops such an instance.  Closing still deletes it.
    AEffect* effect = plugin.effect;
    plugin.effect = nullptr;
    EXPECT_EQ(effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f), 1);
}

TEST(PluginProcessing, TwoInstancesSideBySide) {
    auto first = std::make_unique<Instance>();
    Instance second;
    first->start(48000.0f, 256);
    second.start(44100.0f, 128);
    first->setParameter(kVol, 1.0f);
    second.setParameter(kVol, 0.25f);
    Settings loud, quiet;
    loud.vol = 1.0;
    quiet.vol = 0.25;

    std::vector<float> in = tone(256, 440.0), out(256), out1(256);
    float* inputs[2] = {in.data(), in.data()};
    float* outputs[2] = {out.data(), out1.data()};
    for (int round = 0; round < 3; ++round) {
        first->process(inputs, outputs, 256);
        EXPECT_TRUE(scaled(out, in, expectedGain(loud), 256));
        second.process(inputs, outputs, 128);
        EXPECT_TRUE(scaled(out, in, expectedGain(quiet), 128));
    }
    EXPECT_EQ(first->getParameter(kVol), 1.0f);
    EXPECT_EQ(second.getParameter(kVol), 0.25f);

    // Closing one leaves the other untouched.
    EXPECT_EQ(first->close(), 1);
    first.reset();
    second.process(inputs, outputs, 128);
    EXPECT_TRUE(scaled(out, in, expectedGain(quiet), 128));
}

TEST(PluginProcessing, SteadyStateBlocksDoNotAllocate) {
    // The counter sees the module's own allocations: making an instance is full of them.
    long atCreation;
    {
        allocation::Counter counter;
        Instance probe;
        atCreation = counter.allocations();
    }
    EXPECT_GT(atCreation, 100);

    Instance plugin;
    plugin.start(48000.0f, 256);
    plugin.setParameter(kStereo, 1.0f);
    std::vector<float> left = tone(256, 440.0), right = tone(256, 220.0), out0(256), out1(256);
    float* inputs[2] = {left.data(), right.data()};
    float* outputs[2] = {out0.data(), out1.data()};
    plugin.process(inputs, outputs, 256);  // the first block carries the controls to the elements

    {
        allocation::Counter counter;
        for (int block = 0; block < 200; ++block) plugin.process(inputs, outputs, block % 2 ? 256 : 100);
        EXPECT_EQ(counter.allocations(), 0);
    }

    // Knobs turned between blocks (Oversampling held still): still nothing on the audio path.
    long duringBlocks = 0;
    for (int block = 0; block < 50; ++block) {
        plugin.setParameter(kGain, 0.01f * float(block));
        plugin.setParameter(kVol, 1.0f - 0.01f * float(block));
        plugin.setParameter(kCPU, float(block % 2));
        allocation::Counter counter;
        plugin.process(inputs, outputs, 256);
        duringBlocks += counter.allocations();
    }
    EXPECT_EQ(duringBlocks, 0);
}
