// What hosts, users and upstream plug-ins really send: sizes and rates that make no sense, keys
// with impossible modifiers, bad samples, odd or null buffer pointers, their own floating-point
// mode.  None of it may stop, crash or change an instance.  (orm-validate adds every value of every
// parameter, every opcode with null pointers, and open/close cycles that must give the memory back.)

#include <xmmintrin.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

using namespace testhost;

const float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();

TEST(PluginHostProof, NonsenseFromTheHostChangesNothing) {
    const size_t n = 64;
    Instance plugin, twin;
    // The largest size a host could announce sizes nothing beyond reason.  Buffers only grow:
    // the twin gets the same sizes, so that its transforms have the same length.
    for (Instance* p : {&plugin, &twin}) {
        p->start(48000.0f, INT32_MAX).dispatch(effMainsChanged, 0, 0);
        p->dispatch(effSetBlockSize, 0, static_cast<intptr_t>(n));
    }
    // Sizes below 1 and rates no host plays at are ignored.
    for (intptr_t size : {0, -5}) plugin.dispatch(effSetBlockSize, 0, size);
    for (float rate : {0.0f, 999.0f, -44100.0f, 768001.0f, kNaN, kInf})
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate);
    // Parameter values beyond 0..1 are the nearer end; NaN changes nothing.
    plugin.setParameter(kVol, 7.0f).setParameter(kFeedback, -3.0f).setParameter(kInput, kNaN);
    twin.setParameter(kVol, 1.0f).setParameter(kFeedback, 0.0f);
    EXPECT_EQ(plugin.getParameter(kVol), 1.0f);
    EXPECT_EQ(plugin.getParameter(kFeedback), 0.0f);
    EXPECT_EQ(plugin.getParameter(kInput), 0.5f);
    // Found by the dispatcher's fuzz target: a key's modifiers come as a float, and -2.6712e7 was
    // converted to a byte unchecked (this suite runs under UBSan in the test command).
    for (float modifiers : {-2.6712e7f, kNaN, kInf, 1e9f, 256.0f, -1.0f, 0.0f, 255.0f})
        for (int32_t opcode : {effEditKeyDown, effEditKeyUp}) {
            plugin.dispatch(opcode, 'a', 1000, nullptr, modifiers);
            plugin.dispatch(opcode, -5, -7, nullptr, modifiers);
        }

    // A bad sample among them: what replaces it must have survived the nonsense as well.
    std::vector<float> left = tone(n, 440.0);
    left[5] = kNaN;
    Block a(n), b(n);
    for (Instance* p : {&plugin, &twin}) p->dispatch(effMainsChanged, 0, 1);
    for (int i = 0; i < 24; ++i) {
        a.run(plugin, left, left);
        b.run(twin, left, left);
        ASSERT_EQ(a.out0, b.out0) << i;
        // Another instance made and closed meanwhile leaves both alone.
        if (i == 12) Instance(hostCallback).start(44100.0f, 128);
    }
    EXPECT_GT(rms(a.out0), 1e-4);
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginHostProof, PointerShapesPlayAsWhatTheyMean) {
    // Each shape of the host's pointer arrays against a twin given separate buffers with what the
    // shape means: a missing input is silence, a missing or repeated second input is the first,
    // NaN and infinite samples are silence, a missing output is not written, an output given twice
    // gets channel 0, and in place (the inputs are in the output buffers) is as if apart.  Both
    // missing: a null array.  The blocks are the announced size, the most the input check looks at.
    enum Place { kLeft, kRight, kBad, kNone, kOut0, kOut1 };
    const struct {
        const char* what;
        Place in0, in1, out0, out1;
    } shapes[] = {
        {"null second input", kLeft, kNone, kOut0, kOut1}, {"same input twice", kLeft, kLeft, kOut0, kOut1},
        {"null first input", kNone, kRight, kOut0, kOut1}, {"no inputs", kNone, kNone, kOut0, kOut1},
        {"null second output", kLeft, kRight, kOut0, kNone}, {"null first output", kLeft, kRight, kNone, kOut1},
        {"same output twice", kLeft, kRight, kOut0, kOut0}, {"no outputs", kLeft, kRight, kNone, kNone},
        {"in place", kOut0, kOut1, kOut0, kOut1},          {"bad first input", kBad, kRight, kOut0, kOut1},
        {"bad second input", kLeft, kBad, kOut0, kOut1},
    };
    const size_t n = 64;
    const std::vector<float> left = tone(n, 440.0), right = tone(n, 1000.0, 0.3), zero(n, 0.0f), untouched(n, 7.0f);
    // Every seventh sample of the first tone NaN, +inf or -inf; in its meaning, 0.
    std::vector<float> bad = left, cleaned = left;
    for (size_t k = 0; k < n; k += 7) bad[k] = k % 3 == 0 ? kNaN : k % 3 == 1 ? kInf : -kInf, cleaned[k] = 0.0f;
    for (const auto& s : shapes) {
        SCOPED_TRACE(s.what);
        Instance plugin, twin;
        for (Instance* p : {&plugin, &twin}) p->start(48000.0f, static_cast<int>(n)).setParameter(kStereo, 1.0f);
        std::vector<float> out[2] = {untouched, untouched};
        const std::vector<float>* meaning[] = {&left, &right, &cleaned, &zero, &left, &right};
        float* places[] = {const_cast<float*>(left.data()), const_cast<float*>(right.data()), bad.data(), nullptr,
                           out[0].data(),                    out[1].data()};
        float* inputs[2] = {places[s.in0], places[s.in1]};
        float* outputs[2] = {places[s.out0], places[s.out1]};
        const std::vector<float>& twinLeft = *meaning[s.in0];
        const std::vector<float>& twinRight = s.in1 == kNone || s.in1 == s.in0 ? twinLeft : *meaning[s.in1];
        Block reference(n);
        // Past the start, where the stages' DC settling (the same in both chains) swamps the signal.
        for (int i = 0; i < 40; ++i) {
            if (s.in0 == kOut0) out[0] = left, out[1] = right;
            plugin.process(inputs[0] || inputs[1] ? inputs : nullptr, outputs[0] || outputs[1] ? outputs : nullptr,
                           static_cast<int32_t>(n));
            reference.run(twin, twinLeft, twinRight);
        }
        // An output not given, or given as the other, keeps what it held.
        EXPECT_TRUE(scaled(out[0], s.out0 == kOut0 ? reference.out0 : untouched));
        EXPECT_TRUE(scaled(out[1], s.out1 == kOut1 ? reference.out1 : untouched));
        EXPECT_TRUE(&twinRight == &zero || rms(reference.out1) > 1e-3);
        EXPECT_EQ(plugin.failedBlocks(), 0);
    }
}

TEST(PluginHostProof, ARunawayStateRecoversWithinOneBlock) {
    // Finite input so large that the stages overflow (the tube tables downstream hide it as a
    // constant): the block comes out silent, every state is cleared, and from the next block on
    // the instance plays again, finite, and after the stages have found their operating points
    // once more (a new instance starts there already) as a new one would.
    const size_t n = 256;
    Instance plugin, reference;
    for (Instance* p : {&plugin, &reference}) p->start(48000.0f, static_cast<int>(n)).setParameter(kInput, 1.0f);
    Block block(n), fresh(n);
    std::vector<float> huge(n), music = tone(n, 440.0);
    for (size_t k = 0; k < n; ++k) huge[k] = (k / 8) % 2 ? 3e38f : -3e38f;
    for (int i = 0; i < 4; ++i) block.run(plugin, music, music);
    block.run(plugin, huge, huge);
    EXPECT_EQ(block.out0, std::vector<float>(n, 0.0f));
    EXPECT_EQ(plugin.recoveries(), 1);
    for (int i = 0; i < 400; ++i) {
        block.run(plugin, music, music);
        fresh.run(reference, music, music);
        ASSERT_TRUE(sane(block.out0)) << i;
    }
    EXPECT_TRUE(scaled(block.out0, fresh.out0, 1.0, 1e-4));
    EXPECT_GT(rms(block.out0), 1e-3);
    EXPECT_EQ(plugin.recoveries(), 1);
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginHostProof, EveryEntryPointGivesTheCallersFloatingPointModeBack) {
    Instance* plugin = nullptr;
    const std::vector<float> in(64, 0.25f);
    Block io(64);
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"VSTPluginMain", [&] { plugin = new Instance(); }},
        {"dispatcher", [&] { plugin->start(48000.0f, 64); }},
        {"setParameter", [&] { plugin->setParameter(kOversampling, 1.0f); }},
        {"getParameter", [&] { plugin->getParameter(kVol); }},
        {"processReplacing", [&] { io.run(*plugin, in, in); }},
        {"suspend", [&] { plugin->dispatch(effMainsChanged, 0, 0); }},
        {"refused processReplacing", [&] { io.run(*plugin, in, in); }},
        {"refused block size", [&] { plugin->dispatch(effSetBlockSize, 0, -1); }},
        {"effClose", [&] { delete plugin; }},
    };
    // The processor's default, flush-to-zero alone, and rounding towards zero with denormals
    // (the low six bits are the sticky exception flags).
    for (uint32_t mode : {0x1f80u, 0x9f80u, 0x7f80u})
        for (const auto& call : calls) {
            _mm_setcsr(mode);
            call.second();
            EXPECT_EQ(_mm_getcsr() & ~0x3fu, mode) << call.first << " " << std::hex << mode;
        }
    _mm_setcsr(0x1f80u);
}
