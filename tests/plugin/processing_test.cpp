// Audio through the module as a host passes it: the output follows the controls, mono and stereo
// paths, block sizes, a refused block, no allocation.  (orm-validate adds every rate from 22.05
// to 192 kHz with block sizes from 1 to 4096, and twin instances side by side.)
//
// The amplifier is nonlinear, so instead of fixed gains the tests use what holds exactly: the
// output knob acts after every nonlinear stage (doubling it doubles the output), the two chains
// are equal (equal inputs give equal outputs), and instances are independent (two instances fed
// alike give the same samples).

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using namespace testhost;

TEST(PluginProcessing, OutputFollowsTheControls) {
    const size_t n = 512;
    Instance a, b;
    for (Instance* p : {&a, &b}) p->start(48000.0f, static_cast<int>(n));
    Block ra(n), rb(n);
    // The knob glides for 20 ms, and the ramp rings out through the DC block and the cabinet:
    // 30 blocks.  The output knob is the last gain before the (linear) cabinet: 0.5 to 1 doubles
    // the output, at the default drive and at full drive and input.
    b.setParameter(kVol, 1.0f);
    const struct {
        float drive, feedback;
        double amplitude;
    } settings[] = {{0.5f, 1.0f, 0.25}, {1.0f, 0.0f, 0.9}};
    for (const auto& setting : settings) {
        SCOPED_TRACE(setting.drive);
        const std::vector<float> in = tone(n, 220.0, setting.amplitude);
        for (Instance* p : {&a, &b}) {
            p->setParameter(kGain, setting.drive).setParameter(kInput, setting.drive);
            p->setParameter(kFeedback, setting.feedback);
        }
        for (int i = 0; i < 30; ++i) {
            ra.run(a, in, in);
            rb.run(b, in, in);
            ASSERT_TRUE(sane(ra.out0) && sane(rb.out0, 2.0f)) << "block " << i;
        }
        EXPECT_GT(rms(ra.out0), 1e-3);
        EXPECT_TRUE(scaled(rb.out0, ra.out0, 2.0));
    }
    // Output at 0: silence after the glide and the cabinet's tail.
    const std::vector<float> loud = tone(n, 220.0, 0.9);
    b.setParameter(kVol, 0.0f);
    for (int i = 0; i < 30; ++i) rb.run(b, loud, loud);
    EXPECT_EQ(rms(rb.out0), 0.0);
}

TEST(PluginProcessing, StereoMonoAndTheCopyOfOutputZero) {
    const size_t n = 128;
    Instance plugin;
    const std::vector<float> left = tone(n, 440.0), right = tone(n, 1000.0, 0.3);
    Block r(n);
    // Stereo on, past the cabinet response's own delay.  (The amplifier's system tests compare
    // each chain with the first chain fed that side alone.)
    plugin.start(48000.0f, 128).setParameter(kStereo, 1.0f);
    for (int i = 0; i < 20; ++i) r.run(plugin, left, right);
    // What the host declares on each side decides: a mono side is an array of one pointer (a
    // second is never read or written) and runs one chain; Stereo off gives output 0 on both sides.
    LonePointer loneIn, loneOut;
    loneIn.array()[0] = const_cast<float*>(left.data());
    loneOut.array()[0] = r.out0.data();
    float* inputs[2] = {const_cast<float*>(left.data()), const_cast<float*>(right.data())};
    float* outputs[2] = {r.out0.data(), r.out1.data()};
    const struct {
        int inputs, outputs;
        float stereo;
        bool ownSecond;
    } cases[] = {{1, 1, 1.0f, false}, {1, 2, 1.0f, false}, {2, 1, 1.0f, false},
                 {2, 2, 0.5f, true},   {2, 2, 0.49f, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.inputs << " in, " << c.outputs << " out, Stereo " << c.stereo);
        EXPECT_EQ(plugin.setArrangement(c.inputs, c.outputs), 1);
        plugin.setParameter(kStereo, c.stereo);
        std::fill(r.out1.begin(), r.out1.end(), 5.0f);
        plugin.process(c.inputs == 1 ? loneIn.array() : inputs, c.outputs == 1 ? loneOut.array() : outputs, 128);
        EXPECT_TRUE(sane(r.out0) && rms(r.out0) > 1e-3);
        // The second output is its own, a copy of output 0, or, where there is none, untouched.
        EXPECT_EQ(r.out1 == r.out0, c.outputs == 2 && !c.ownSecond);
        EXPECT_EQ(r.out1 == std::vector<float>(n, 5.0f), c.outputs == 1);
    }
}

TEST(PluginProcessing, BlockSizesZeroFramesAndARefusedBlock) {
    // Any size, none included, against a twin given the same samples in blocks of at most the
    // announced 256: a longer block runs in pieces of it.  What the host did not ask for stays
    // as it was.
    Instance plugin, twin;
    for (Instance* p : {&plugin, &twin}) p->start(44100.0f, 256);
    const std::vector<float> in = tone(1024, 440.0);
    for (size_t frames : {0, 1, 17, 255, 256, 1000, 1000, 1024}) {
        SCOPED_TRACE(frames);
        std::vector<float> out(1024, 9.0f), out1(1024, 9.0f), twinOut(1024), twinOut1(1024);
        float* inputs[2] = {const_cast<float*>(in.data()), const_cast<float*>(in.data())};
        float* outputs[2] = {out.data(), out1.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(frames));
        for (size_t done = 0; done < frames; done += 256) {
            float* pieceIn[2] = {inputs[0] + done, inputs[1] + done};
            float* pieceOut[2] = {twinOut.data() + done, twinOut1.data() + done};
            twin.process(pieceIn, pieceOut, static_cast<int32_t>(std::min<size_t>(256, frames - done)));
        }
        EXPECT_TRUE(std::equal(out.begin(), out.begin() + frames, twinOut.begin()));
        EXPECT_TRUE(std::equal(out1.begin(), out1.begin() + frames, out.begin()));
        EXPECT_EQ(std::count(out.begin() + frames, out.end(), 9.0f), 1024 - frames);
        EXPECT_EQ(std::count(out1.begin() + frames, out1.end(), 9.0f), 1024 - frames);
        EXPECT_TRUE(frames < 1024 || (sane(out) && rms(out) > 1e-3));
    }
    // Suspended: the block is refused, without an exception: silence, counted as failed.
    plugin.dispatch(effMainsChanged, 0, 0);
    Block refused(16);
    refused.out0.assign(16, 3.0f);
    refused.out1.assign(16, 3.0f);
    EXPECT_EQ(plugin.failedBlocks(), 0);
    refused.run(plugin, in, in);
    EXPECT_EQ(plugin.failedBlocks(), 1);
    EXPECT_EQ(refused.out0, std::vector<float>(16, 0.0f));
    EXPECT_EQ(refused.out1, std::vector<float>(16, 0.0f));
}

TEST(PluginProcessing, SteadyStateBlocksDoNotAllocate) {
    // The counter sees the module's own allocations: making an instance is full of them.
    {
        allocation::Counter counter;
        Instance probe;
        EXPECT_GT(counter.allocations(), 100);
    }
    Instance plugin;
    plugin.start(48000.0f, 256).setParameter(kStereo, 1.0f);
    std::vector<float> left = tone(256, 440.0), right = tone(256, 220.0), out0(256), out1(256);
    float* inputs[2] = {left.data(), right.data()};
    float* outputs[2] = {out0.data(), out1.data()};
    plugin.process(inputs, outputs, 256);  // the first block carries the controls to the elements

    // Knobs turned between blocks of two sizes (Oversampling held still): nothing on the audio
    // path, in either CPU mode and with the high-CPU handlers rewriting coefficients at full drive.
    long duringBlocks = 0;
    for (int block = 0; block < 100; ++block) {
        for (Parameter knob : {kGain, kInput, kFeedback}) plugin.setParameter(knob, 0.01f * float(block));
        plugin.setParameter(kVol, 1.0f - 0.005f * float(block));
        plugin.setParameter(kCabinet, float((block / 5) % 2));
        plugin.setParameter(kCPU, float((block / 2) % 2));
        allocation::Counter counter;
        plugin.process(inputs, outputs, block % 2 ? 256 : 100);
        duringBlocks += counter.allocations();
    }
    EXPECT_EQ(duringBlocks, 0);

    // A new oversampling factor redesigns the resamplers: the first block after it may
    // allocate, the ones after it do not.
    for (float factor : {1.0f, 0.0f, 0.5f}) {
        plugin.setParameter(kOversampling, factor);
        plugin.process(inputs, outputs, 256);
        allocation::Counter counter;
        for (int block = 0; block < 20; ++block) plugin.process(inputs, outputs, 256);
        EXPECT_EQ(counter.allocations(), 0) << factor;
        EXPECT_TRUE(sane(out0)) << factor;
    }
}
