// Audio through the module as a host passes it: the amplifier's output stays finite and in range
// and follows the controls, mono and stereo paths, odd buffer pointers, block sizes, suspend,
// several instances, no allocation.
//
// The amplifier is nonlinear, so instead of fixed gains the tests use what holds exactly: the
// output knob acts after every nonlinear stage (doubling it doubles the output), the two chains
// are equal (equal inputs give equal outputs), and instances are independent (two instances fed
// alike give the same samples).

#include <xmmintrin.h>

#include <cmath>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using testhost::Channels;
using testhost::Instance;

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

std::vector<float> tone(size_t frames, double frequency, double amplitude = 0.5, size_t offset = 0) {
    std::vector<float> samples(frames);
    for (size_t i = 0; i < frames; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * frequency * double(i + offset) / 48000.0));
    return samples;
}

double rms(const std::vector<float>& x, size_t frames) {
    double sum = 0;
    for (size_t i = 0; i < frames; ++i) sum += double(x[i]) * x[i];
    return std::sqrt(sum / double(frames));
}

// Every sample finite and within a bound: full scale by default.  The stages clip at their
// supplies, so even full drive with the output knob at full stays within a small multiple of it.
::testing::AssertionResult sane(const std::vector<float>& out, size_t frames, float bound = 1.0f) {
    for (size_t i = 0; i < frames; ++i)
        if (!std::isfinite(out[i]) || std::fabs(out[i]) >= bound)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i];
    return ::testing::AssertionSuccess();
}

// out equals factor * reference within float rounding of the block's peak.
::testing::AssertionResult scaled(const std::vector<float>& out, const std::vector<float>& reference, double factor,
                                  size_t frames) {
    double peak = 0;
    for (size_t i = 0; i < frames; ++i) peak = std::fmax(peak, std::fabs(factor * reference[i]));
    for (size_t i = 0; i < frames; ++i) {
        double want = factor * reference[i];
        if (std::fabs(out[i] - want) > 1e-6 * peak + 1e-30)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i] << " against " << want;
    }
    return ::testing::AssertionSuccess();
}

// Runs blocks of a tone through an instance: left and right inputs, both outputs returned.
struct Blocks {
    explicit Blocks(size_t frames) : out0(frames), out1(frames) {}
    void block(Instance& plugin, const std::vector<float>& left, const std::vector<float>& right, size_t frames) {
        float* inputs[2] = {const_cast<float*>(left.data()), const_cast<float*>(right.data())};
        float* outputs[2] = {out0.data(), out1.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(frames));
    }
    std::vector<float> out0, out1;
};

}  // namespace

TEST(PluginProcessing, OutputFollowsTheControls) {
    const size_t n = 512;
    std::vector<float> in = tone(n, 220.0, 0.25);
    Instance a, b;
    a.start(48000.0f, 512);
    b.start(48000.0f, 512);
    Blocks ra(n), rb(n);

    // Defaults: an audible, bounded signal.  The knob glides for 20 ms, and the ramp rings out
    // through the DC block and the cabinet: 30 blocks.
    b.setParameter(kVol, 1.0f);
    for (int i = 0; i < 30; ++i) {
        ra.block(a, in, in, n);
        rb.block(b, in, in, n);
    }
    EXPECT_TRUE(sane(ra.out0, n));
    EXPECT_GT(rms(ra.out0, n), 1e-3);
    // The output knob is the last gain before the (linear) cabinet: 0.5 to 1 doubles the output.
    EXPECT_TRUE(scaled(rb.out0, ra.out0, 2.0, n));

    // Full drive and full input: still finite and within full scale.
    for (Instance* plugin : {&a, &b}) {
        plugin->setParameter(kGain, 1.0f);
        plugin->setParameter(kInput, 1.0f);
        plugin->setParameter(kFeedback, 0.0f);
    }
    std::vector<float> loud = tone(n, 220.0, 0.9);
    for (int i = 0; i < 20; ++i) {
        ra.block(a, loud, loud, n);
        rb.block(b, loud, loud, n);
        ASSERT_TRUE(sane(ra.out0, n)) << i;
        ASSERT_TRUE(sane(rb.out0, n, 2.0f)) << i;
    }
    EXPECT_TRUE(scaled(rb.out0, ra.out0, 2.0, n));

    // Every switch position and oversampling factor keeps the output sane and not silent.
    for (float cabinet : {0.0f, 1.0f})
        for (float cpu : {0.0f, 1.0f})
            for (float factor : {0.0f, 0.5f, 1.0f}) {
                b.setParameter(kCabinet, cabinet);
                b.setParameter(kCPU, cpu);
                b.setParameter(kOversampling, factor);
                for (int i = 0; i < 10; ++i) rb.block(b, loud, loud, n);
                EXPECT_TRUE(sane(rb.out0, n, 2.0f)) << cabinet << " " << cpu << " " << factor;
                EXPECT_GT(rms(rb.out0, n), 1e-3) << cabinet << " " << cpu << " " << factor;
            }

    // Output at 0: silence after the glide and the cabinet's tail.
    b.setParameter(kVol, 0.0f);
    for (int i = 0; i < 30; ++i) rb.block(b, loud, loud, n);
    EXPECT_EQ(rms(rb.out0, n), 0.0);
}

TEST(PluginProcessing, StereoMonoAndTheCopyOfOutputZero) {
    const size_t n = 128;
    Instance plugin, leftOnly, rightOnly;
    for (Instance* p : {&plugin, &leftOnly, &rightOnly}) p->start(48000.0f, 128);
    std::vector<float> left = tone(n, 440.0), right = tone(n, 1000.0, 0.3);
    Blocks r(n), rl(n), rr(n);

    // Stereo on from the start: each side is what the first chain makes of that side alone.
    // The references run in step, so that all chains share one history.
    Instance* all[3] = {&plugin, &leftOnly, &rightOnly};
    for (Instance* p : all) p->setParameter(kStereo, 1.0f);
    for (int i = 0; i < 20; ++i) {
        r.block(plugin, left, right, n);
        rl.block(leftOnly, left, left, n);
        rr.block(rightOnly, right, right, n);
    }
    EXPECT_TRUE(scaled(r.out0, rl.out0, 1.0, n));
    EXPECT_TRUE(scaled(r.out1, rr.out0, 1.0, n));
    EXPECT_GT(rms(r.out1, n), 1e-3);
    EXPECT_NE(r.out1, r.out0);
    // Equal inputs on a stereo host: the two chains are equal.
    EXPECT_TRUE(scaled(rl.out1, rl.out0, 1.0, n));

    // A mono arrangement wins over the Stereo control, and the host passes one buffer a side:
    // the second output is not touched.
    plugin.setArrangement(1, 1);
    EXPECT_EQ(plugin.lastArrangementAnswer, 1);
    std::fill(r.out1.begin(), r.out1.end(), 5.0f);
    r.block(plugin, left, right, n);
    EXPECT_TRUE(sane(r.out0, n));
    EXPECT_EQ(r.out1, std::vector<float>(n, 5.0f));

    // One in, two out: one chain, its output on both sides; the answer is still yes.
    plugin.setArrangement(1, 2);
    EXPECT_EQ(plugin.lastArrangementAnswer, 1);
    r.block(plugin, left, right, n);
    EXPECT_EQ(r.out1, r.out0);

    plugin.setArrangement(2, 2);
    r.block(plugin, left, right, n);
    EXPECT_NE(r.out1, r.out0);

    // Stereo off (the default): a stereo host gets output 0 on both sides.
    plugin.setParameter(kStereo, 0.0f);
    r.block(plugin, left, right, n);
    EXPECT_TRUE(sane(r.out0, n));
    EXPECT_EQ(r.out1, r.out0);
}

TEST(PluginProcessing, NullAndAliasedPointers) {
    const size_t n = 64;
    Instance plugin;
    plugin.start(48000.0f, 64);
    plugin.setParameter(kStereo, 1.0f);
    std::vector<float> left = tone(n, 440.0), right = tone(n, 1000.0, 0.3), out0(n), out1(n, 7.0f);
    Blocks settle(n);
    for (int i = 0; i < 4; ++i) settle.block(plugin, left, left, n);

    // A null second input: the second chain gets input 0, and the equal chains agree.
    float* nullSecond[2] = {left.data(), nullptr};
    float* outputs[2] = {out0.data(), out1.data()};
    plugin.process(nullSecond, outputs, 64);
    EXPECT_TRUE(sane(out0, n));
    EXPECT_TRUE(scaled(out1, out0, 1.0, n));

    // The same pointer twice: likewise.
    float* same[2] = {left.data(), left.data()};
    plugin.process(same, outputs, 64);
    EXPECT_TRUE(scaled(out1, out0, 1.0, n));

    // A null second output: nothing to write, no fault.
    float* nullOut[2] = {out0.data(), nullptr};
    float* inputs[2] = {left.data(), right.data()};
    plugin.process(inputs, nullOut, 64);
    EXPECT_TRUE(sane(out0, n));

    // The same output twice: channel 0 is what lands there, against a twin fed alike.
    Instance lone, twin;
    for (Instance* p : {&lone, &twin}) {
        p->start(48000.0f, 64);
        p->setParameter(kStereo, 1.0f);
    }
    Blocks rt(n);
    std::vector<float> aliased(n);
    float* sameOut[2] = {aliased.data(), aliased.data()};
    // Past the start, where the stages' DC settling (the same in both chains) swamps the signal.
    for (int i = 0; i < 40; ++i) {
        lone.process(inputs, sameOut, 64);
        rt.block(twin, left, right, n);
    }
    EXPECT_TRUE(scaled(aliased, rt.out0, 1.0, n));
    EXPECT_NE(rt.out1, rt.out0);

    // In place: the host's input buffers are its outputs; a twin with separate buffers agrees.
    Instance inPlaceHost, separate;
    for (Instance* p : {&inPlaceHost, &separate}) {
        p->start(48000.0f, 64);
        p->setParameter(kStereo, 1.0f);
    }
    Blocks rs(n);
    std::vector<float> a, b;
    for (int i = 0; i < 4; ++i) {
        a = left, b = right;
        float* inPlace[2] = {a.data(), b.data()};
        inPlaceHost.process(inPlace, inPlace, 64);
        rs.block(separate, left, right, n);
    }
    EXPECT_TRUE(scaled(a, rs.out0, 1.0, n));
    EXPECT_TRUE(scaled(b, rs.out1, 1.0, n));
}

TEST(PluginProcessing, BlockSizesZeroFramesAndSuspend) {
    Instance plugin;
    plugin.start(44100.0f, 512);

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
        EXPECT_TRUE(sane(out, static_cast<size_t>(frames))) << frames;
        if (frames < 512) {
            EXPECT_EQ(out[static_cast<size_t>(frames)], 9.0f) << frames;
        }
    }

    // Suspended: the block is refused, without an exception: silence, counted as failed, and
    // the caller's MXCSR comes back.
    plugin.dispatch(effMainsChanged, 0, 0);
    _mm_setcsr(_mm_getcsr() & ~((1u << 15) | (1u << 6)));
    EXPECT_EQ(plugin.failedBlocks(), 0);
    EXPECT_NO_THROW(plugin.process(io.pointers, io.pointers, 16));
    EXPECT_EQ(plugin.failedBlocks(), 1);
    EXPECT_EQ(io.left, std::vector<float>(16, 0.0f));
    EXPECT_EQ(_mm_getcsr() & ((1u << 15) | (1u << 6)), 0u);

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
    for (int i = 0; i < 4; ++i) plugin.process(inputs, outputs, 2048);
    EXPECT_TRUE(sane(out, 2048));
    EXPECT_GT(rms(out, 2048), 1e-3);
}

TEST(PluginProcessing, ABlockPastTheMaximumRunsInPiecesOfIt) {
    // 1000 frames against an announced 256: the same samples as a twin given 256, 256, 256, 232.
    Instance plugin, twin;
    plugin.start(48000.0f, 256);
    twin.start(48000.0f, 256);
    const size_t n = 1000;
    std::vector<float> in = tone(n, 440.0), out(n), out1(n), twinOut(n), twinOut1(n);
    for (int round = 0; round < 3; ++round) {
        float* inputs[2] = {in.data(), in.data()};
        float* outputs[2] = {out.data(), out1.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(n));
        for (size_t done = 0; done < n; done += 256) {
            float* pieceIn[2] = {in.data() + done, in.data() + done};
            float* pieceOut[2] = {twinOut.data() + done, twinOut1.data() + done};
            twin.process(pieceIn, pieceOut, static_cast<int32_t>(std::min<size_t>(256, n - done)));
        }
        EXPECT_EQ(out, twinOut) << round;
    }
    EXPECT_TRUE(sane(out, n));
    EXPECT_GT(rms(out, n), 1e-3);
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginProcessing, TwoInstancesSideBySide) {
    const size_t n = 256;
    auto first = std::make_unique<Instance>();
    Instance second, reference;
    first->start(48000.0f, 256);
    second.start(44100.0f, 128);
    reference.start(44100.0f, 128);
    first->setParameter(kVol, 1.0f);
    second.setParameter(kVol, 0.25f);
    reference.setParameter(kVol, 0.25f);
    EXPECT_EQ(first->getParameter(kVol), 1.0f);
    EXPECT_EQ(second.getParameter(kVol), 0.25f);

    std::vector<float> in = tone(n, 440.0);
    Blocks r1(n), r2(n), rr(n);
    // Ten blocks: past the cabinet response's own delay of 22 ms.
    for (int round = 0; round < 10; ++round) {
        r1.block(*first, in, in, n);
        r2.block(second, in, in, 128);
        rr.block(reference, in, in, 128);
        EXPECT_TRUE(sane(r1.out0, n));
        EXPECT_TRUE(scaled(r2.out0, rr.out0, 1.0, 128)) << round;
    }

    // Closing one leaves the other untouched: it still runs exactly like its reference.
    EXPECT_EQ(first->close(), 1);
    first.reset();
    r2.block(second, in, in, 128);
    rr.block(reference, in, in, 128);
    EXPECT_TRUE(scaled(r2.out0, rr.out0, 1.0, 128));
    EXPECT_GT(rms(r2.out0, 128), 1e-4);
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

    // Knobs turned between blocks (Oversampling held still): still nothing on the audio path,
    // in either CPU mode and with the high-CPU handlers rewriting coefficients at full drive.
    long duringBlocks = 0;
    for (int block = 0; block < 50; ++block) {
        plugin.setParameter(kGain, 0.02f * float(block));
        plugin.setParameter(kInput, 0.02f * float(block));
        plugin.setParameter(kVol, 1.0f - 0.01f * float(block));
        plugin.setParameter(kFeedback, 0.02f * float(block));
        plugin.setParameter(kCabinet, float((block / 5) % 2));
        plugin.setParameter(kCPU, float(block % 2));
        allocation::Counter counter;
        plugin.process(inputs, outputs, 256);
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
        EXPECT_TRUE(sane(out0, 256)) << factor;
    }
}
