// Parameters turned on one thread while another runs blocks, as a host's editor and audio
// threads do.  Built with ThreadSanitizer: the hand-over through the controls must be race-free,
// and the last value written must be the one the audio ends up with.

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

using namespace testhost;

TEST(PluginThreads, ParameterChangesWhileBlocksRun) {
    Instance plugin;
    const size_t frames = 128;
    plugin.start(48000.0f, static_cast<int>(frames));
    const std::vector<float> left = tone(frames, 440.0), right = tone(frames, 660.0, 0.25);
    std::atomic<bool> writerDone{false};
    std::atomic<int> blocks{0};
    Block last(frames);

    std::thread audio([&] {
        while (!writerDone.load(std::memory_order_acquire)) {
            last.run(plugin, left, right);
            // A host's display reads a parameter meanwhile: every value read is one written.
            const float feedback = plugin.getParameter(kFeedback);
            EXPECT_TRUE(feedback == 1.0f || feedback == 0.0f || feedback == 0.25f || feedback == 0.5f) << feedback;
            blocks.fetch_add(1, std::memory_order_relaxed);
        }
        // The writer has finished: the blocks after it carry its last values.  Output at 0 is
        // silence once its glide and the cabinet's tail have passed (120 blocks: 320 ms).
        for (int i = 0; i < 120; ++i) last.run(plugin, left, right);
    });
    std::thread editor([&] {
        // Until the audio thread has run a few blocks meanwhile, however the two are scheduled.
        // Output never 0 before the last write, so that silence can only come from that one.
        for (int i = 0; i < 4000 || blocks.load(std::memory_order_relaxed) < 20; ++i) {
            plugin.setParameter(kVol, float(1 + i % 100) / 100.0f);
            plugin.setParameter(kGain, float(i % 37) / 37.0f);
            plugin.setParameter(kStereo, float(i % 2));
            plugin.setParameter(kCPU, float((i / 3) % 2));
            plugin.setParameter(kOversampling, 0.5f);
            plugin.setParameter(kFeedback, float(i % 3) * 0.25f);
            if (i % 200 == 0) std::this_thread::yield();
        }
        plugin.setParameter(kGain, 0.75f).setParameter(kCPU, 1.0f).setParameter(kStereo, 1.0f);
        plugin.setParameter(kVol, 0.0f);
        writerDone.store(true, std::memory_order_release);
    });
    editor.join();
    audio.join();

    EXPECT_EQ(plugin.getParameter(kGain), 0.75f);
    EXPECT_EQ(plugin.getParameter(kCPU), 1.0f);
    EXPECT_EQ(last.out0, std::vector<float>(frames, 0.0f));
    EXPECT_EQ(last.out1, std::vector<float>(frames, 0.0f));
}

TEST(PluginThreads, EditorClosesWhileTheHostSetsParameters) {
    // The host's GUI thread opens and closes the editor (no display here: the widgets exist, the
    // window does not) while another thread sends parameter changes, which the editor shows on
    // its widgets.  Closing must never free a widget under such a call.
    Instance plugin;
    plugin.start(48000.0f, 64);
    std::atomic<bool> done{false};
    std::thread automation([&] {
        for (int i = 0; !done.load(std::memory_order_acquire); ++i) plugin.setParameter(i % 8, float(i % 10) / 10.0f);
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
