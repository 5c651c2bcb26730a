// Parameters turned on one thread while another runs blocks, as a host's editor and audio
// threads do.  Built with ThreadSanitizer: the hand-over through the controls must be race-free,
// and the last value written must be the one the audio ends up with.

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

}  // namespace

TEST(PluginThreads, ParameterChangesWhileBlocksRun) {
    testhost::Instance plugin;
    plugin.start(48000.0f, 128);

    const size_t frames = 128;
    std::vector<float> left(frames), right(frames);
    for (size_t i = 0; i < frames; ++i) {
        left[i] = static_cast<float>(0.5 * std::sin(0.05 * double(i)));
        right[i] = static_cast<float>(0.25 * std::cos(0.03 * double(i)));
    }

    std::atomic<bool> writerDone{false};
    std::atomic<int> blocks{0};
    std::vector<float> lastLeft(frames), lastRight(frames);

    std::thread audio([&] {
        std::vector<float> out0(frames), out1(frames);
        float* inputs[2] = {left.data(), right.data()};
        float* outputs[2] = {out0.data(), out1.data()};
        while (!writerDone.load(std::memory_order_acquire)) {
            plugin.process(inputs, outputs, static_cast<int32_t>(frames));
            blocks.fetch_add(1, std::memory_order_relaxed);
        }
        // The writer has finished: the next block must carry its last values.
        plugin.process(inputs, outputs, static_cast<int32_t>(frames));
        lastLeft = out0;
        lastRight = out1;
    });

    std::thread editor([&] {
        for (int i = 0; i < 4000; ++i) {
            plugin.setParameter(kVol, float(i % 100) / 100.0f);
            plugin.setParameter(kGain, float(i % 37) / 37.0f);
            plugin.setParameter(kStereo, float(i % 2));
            plugin.setParameter(kCPU, float((i / 3) % 2));
            plugin.setParameter(kOversampling, 0.5f);
            (void)plugin.getParameter(kFeedback);
            if (i % 200 == 0) std::this_thread::yield();
        }
        plugin.setParameter(kVol, 0.8f);
        plugin.setParameter(kGain, 0.75f);
        plugin.setParameter(kCPU, 1.0f);
        plugin.setParameter(kStereo, 1.0f);
        writerDone.store(true, std::memory_order_release);
    });

    editor.join();
    audio.join();
    EXPECT_GT(blocks.load(), 0);

    EXPECT_EQ(plugin.getParameter(kVol), 0.8f);
    EXPECT_EQ(plugin.getParameter(kGain), 0.75f);
    // The last values are in force: stereo on gives the right chain its own signal, and the
    // high-CPU branch at this drive gives a finite, bounded output on both sides.
    double leftEnergy = 0, rightEnergy = 0;
    for (size_t i = 0; i < frames; ++i) {
        ASSERT_TRUE(std::isfinite(lastLeft[i]) && std::fabs(lastLeft[i]) < 1.0f) << i << " " << lastLeft[i];
        ASSERT_TRUE(std::isfinite(lastRight[i]) && std::fabs(lastRight[i]) < 1.0f) << i << " " << lastRight[i];
        leftEnergy += double(lastLeft[i]) * lastLeft[i];
        rightEnergy += double(lastRight[i]) * lastRight[i];
    }
    EXPECT_GT(leftEnergy, 0.0);
    EXPECT_GT(rightEnergy, 0.0);
    EXPECT_NE(lastLeft, lastRight);
}

TEST(PluginThreads, ParameterReadsWhileAnotherThreadWrites) {
    // A host reads parameters for its display while automation writes them: every value read is
    // one that was written, and the read never races with the write.
    testhost::Instance plugin;
    plugin.start(48000.0f, 64);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i) plugin.setParameter(kVol, float(i % 4) * 0.25f);
        done.store(true, std::memory_order_release);
    });
    int reads = 0;
    while (!done.load(std::memory_order_acquire)) {
        const float value = plugin.getParameter(kVol);
        ASSERT_TRUE(value == 0.0f || value == 0.25f || value == 0.5f || value == 0.75f) << value;
        ++reads;
    }
    writer.join();
    EXPECT_GT(reads, 0);
}

TEST(PluginThreads, EditorClosesWhileTheHostSetsParameters) {
    // The host's GUI thread opens and closes the editor (no display here: the widgets exist, the
    // window does not) while another thread sends parameter changes, which the editor shows on
    // its widgets.  Closing must never free a widget under such a call.
    testhost::Instance plugin;
    plugin.start(48000.0f, 64);
    std::atomic<bool> done{false};
    std::thread automation([&] {
        int i = 0;
        while (!done.load(std::memory_order_acquire)) {
            plugin.setParameter(i % 8, float(i % 10) / 10.0f);
            ++i;
        }
    });
    for (int cycle = 0; cycle < 20; ++cycle) {
        plugin.dispatch(effEditOpen, 0, 0, nullptr);
        std::this_thread::yield();
        plugin.dispatch(effEditIdle);
        plugin.dispatch(effEditClose);
    }
    done.store(true, std::memory_order_release);
    automation.join();
}
