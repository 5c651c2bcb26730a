// What hosts, users and upstream plug-ins really send: any value of any parameter, sizes and
// rates that make no sense, bad samples, one buffer a side, null places, their own
// floating-point mode.  None of it may stop, crash or change an instance, and closing one gives
// its memory back.

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

using testhost::Instance;

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

std::vector<float> tone(size_t frames, double frequency, double amplitude = 0.5) {
    std::vector<float> samples(frames);
    for (size_t i = 0; i < frames; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * frequency * double(i) / 48000.0));
    return samples;
}

double rms(const std::vector<float>& x) {
    double sum = 0;
    for (float v : x) sum += double(v) * v;
    return std::sqrt(sum / double(x.size()));
}

// Finite and within a bound that full drive with the output knob at full stays under.
::testing::AssertionResult sane(const std::vector<float>& out, float bound = 8.0f) {
    for (size_t i = 0; i < out.size(); ++i)
        if (!std::isfinite(out[i]) || std::fabs(out[i]) >= bound)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i];
    return ::testing::AssertionSuccess();
}

// One stereo block through an instance.
struct Block {
    explicit Block(size_t frames) : out0(frames), out1(frames) {}
    void run(Instance& plugin, const std::vector<float>& left, const std::vector<float>& right) {
        float* inputs[2] = {const_cast<float*>(left.data()), const_cast<float*>(right.data())};
        float* outputs[2] = {out0.data(), out1.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(left.size()));
    }
    std::vector<float> out0, out1;
};

// An array of one pointer that ends where a page nobody may read begins: reading a second
// pointer from it faults.
class LonePointer {
public:
    LonePointer() : page(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED || mprotect(static_cast<char*>(pages) + page, page, PROT_NONE) != 0) std::abort();
    }
    ~LonePointer() { munmap(pages, 2 * page); }
    float** array() { return reinterpret_cast<float**>(static_cast<char*>(pages) + page - sizeof(float*)); }

private:
    size_t page;
    void* pages;
};

// The MXCSR bits that a mode consists of (the low six are the sticky exception flags).
uint32_t modeBits() { return _mm_getcsr() & ~0x3fu; }

}  // namespace

TEST(PluginHostProof, EveryValueOfEveryParameterKeepsTheInstanceWorking) {
    // Steps of 1/100 and values between the switches' positions, x = 0.048 among them: every one
    // must leave an instance that plays.
    const size_t n = 128;
    Instance plugin;
    plugin.start(48000.0f, static_cast<int>(n));
    plugin.setParameter(kStereo, 1.0f);
    const std::vector<float> left = tone(n, 440.0), right = tone(n, 660.0, 0.3);
    Block block(n);
    std::vector<float> values = {0.048f, 0.2499f, 0.25f, 0.3173f, 0.7499f, 0.75f, 0.999f};
    for (int k = 0; k <= 100; ++k) values.push_back(float(k) / 100.0f);
    for (int parameter = 0; parameter < 8; ++parameter) {
        const float before = plugin.getParameter(parameter);
        for (float value : values) {
            plugin.setParameter(parameter, value);
            block.run(plugin, left, right);
            ASSERT_TRUE(sane(block.out0)) << parameter << " at " << value;
            ASSERT_TRUE(sane(block.out1)) << parameter << " at " << value;
        }
        plugin.setParameter(parameter, before);
    }
    EXPECT_EQ(plugin.failedBlocks(), 0);
    for (int i = 0; i < 4; ++i) block.run(plugin, left, right);
    EXPECT_GT(rms(block.out0), 1e-3);
    // Suspend returns: no block is left half done.
    plugin.dispatch(effMainsChanged, 0, 0);
    plugin.dispatch(effMainsChanged, 0, 1);
}

TEST(PluginHostProof, SwitchesSnapToTheirPositions) {
    // A value between positions sounds exactly like the nearest position.
    struct Case {
        Parameter parameter;
        float between;
        float position;
    };
    const Case cases[] = {
        {kOversampling, 0.2f, 0.0f}, {kOversampling, 0.3f, 0.5f}, {kOversampling, 0.7f, 0.5f},
        {kOversampling, 0.8f, 1.0f}, {kCPU, 0.3f, 0.0f},          {kCPU, 0.7f, 1.0f},
        {kCabinet, 0.4f, 0.0f},      {kCabinet, 0.6f, 1.0f},      {kStereo, 0.49f, 0.0f},
        {kStereo, 0.5f, 1.0f},
    };
    const size_t n = 256;
    const std::vector<float> left = tone(n, 440.0), right = tone(n, 660.0, 0.3);
    for (const Case& c : cases) {
        Instance between, position;
        for (Instance* p : {&between, &position}) p->start(48000.0f, static_cast<int>(n));
        between.setParameter(c.parameter, c.between);
        position.setParameter(c.parameter, c.position);
        Block a(n), b(n);
        for (int i = 0; i < 6; ++i) {
            a.run(between, left, right);
            b.run(position, left, right);
        }
        EXPECT_EQ(a.out0, b.out0) << c.parameter << " at " << c.between;
        EXPECT_EQ(a.out1, b.out1) << c.parameter << " at " << c.between;
        EXPECT_GT(rms(a.out0), 1e-4) << c.parameter << " at " << c.between;
        EXPECT_EQ(between.failedBlocks(), 0) << c.parameter << " at " << c.between;
    }
}

TEST(PluginHostProof, NonsenseFromTheHostChangesNothing) {
    const size_t n = 64;
    Instance plugin, twin;
    plugin.start(48000.0f, static_cast<int>(n));
    twin.start(48000.0f, static_cast<int>(n));
    const std::vector<float> left = tone(n, 440.0);
    Block a(n), b(n);

    // Sizes below 1 and rates that are not positive numbers are ignored.
    plugin.dispatch(effMainsChanged, 0, 0);
    EXPECT_EQ(plugin.dispatch(effSetBlockSize, 0, 0), 0);
    EXPECT_EQ(plugin.dispatch(effSetBlockSize, 0, -5), 0);
    // The largest size a host could announce sizes nothing beyond reason.  Buffers only grow:
    // the twin gets the same sizes, so that its transforms have the same length.
    for (Instance* p : {&plugin, &twin}) {
        p->dispatch(effMainsChanged, 0, 0);
        p->dispatch(effSetBlockSize, 0, INT32_MAX);
        p->dispatch(effSetBlockSize, 0, static_cast<intptr_t>(n));
        p->dispatch(effMainsChanged, 0, 1);
    }
    for (float rate : {0.0f, -44100.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()})
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate);
    plugin.dispatch(effMainsChanged, 0, 1);

    // Parameter values beyond 0..1 are the nearer end; NaN changes nothing.
    plugin.setParameter(kVol, 7.0f);
    EXPECT_EQ(plugin.getParameter(kVol), 1.0f);
    twin.setParameter(kVol, 1.0f);
    plugin.setParameter(kFeedback, -3.0f);
    EXPECT_EQ(plugin.getParameter(kFeedback), 0.0f);
    twin.setParameter(kFeedback, 0.0f);
    plugin.setParameter(kInput, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(plugin.getParameter(kInput), 0.5f);

    for (int i = 0; i < 24; ++i) {
        a.run(plugin, left, left);
        b.run(twin, left, left);
        ASSERT_EQ(a.out0, b.out0) << i;
    }
    EXPECT_GT(rms(a.out0), 1e-4);
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginHostProof, NullPlacesAndOneBufferASide) {
    Instance plugin;
    plugin.start(48000.0f, 64);
    // The arrangement query with either place, or both, missing.
    VstSpeakerArrangement* place = reinterpret_cast<VstSpeakerArrangement*>(1);
    EXPECT_EQ(plugin.dispatch(effGetSpeakerArrangement, 0, 0, nullptr), 0);
    EXPECT_EQ(plugin.dispatch(effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&place), nullptr), 0);
    EXPECT_EQ(place, nullptr);
    EXPECT_EQ(plugin.dispatch(effGetSpeakerArrangement, 0, 0, &place), 0);

    // After a mono arrangement the host passes arrays of one pointer.
    LonePointer inputArray, outputArray;
    float** in = inputArray.array();
    float** out = outputArray.array();
    std::vector<float> signal = tone(64, 440.0), result(64, 9.0f);
    in[0] = signal.data();
    out[0] = result.data();
    plugin.setArrangement(1, 1);
    // Past the cabinet response's own delay of 22 ms.
    for (int i = 0; i < 24; ++i) plugin.effect->processReplacing(plugin.effect, in, out, 64);
    EXPECT_TRUE(sane(result));
    EXPECT_GT(rms(result), 1e-4);

    // Null arrays and null buffers: silence in, nothing written where nothing is.
    plugin.setArrangement(2, 2);
    plugin.effect->processReplacing(plugin.effect, nullptr, nullptr, 64);
    float* none[2] = {nullptr, nullptr};
    plugin.effect->processReplacing(plugin.effect, none, none, 64);
    float* outputs[2] = {result.data(), nullptr};
    plugin.effect->processReplacing(plugin.effect, none, outputs, 64);
    EXPECT_TRUE(sane(result));
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginHostProof, BadInputSamplesAreSilence) {
    // An instance fed NaN or infinities plays exactly like a twin fed silence in their place,
    // during the bad block and after it.
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const size_t n = 128;
    for (float bad : {nan, inf, -inf}) {
        Instance plugin, twin;
        for (Instance* p : {&plugin, &twin}) {
            p->start(48000.0f, static_cast<int>(n));
            p->setParameter(kStereo, 1.0f);
        }
        Block a(n), b(n);
        for (int i = 0; i < 12; ++i) {
            std::vector<float> left = tone(n, 440.0), right = tone(n, 660.0), cleanLeft = left, cleanRight = right;
            if (i == 3) {
                // Every seventh sample of one block on the left, the whole block on the right.
                for (size_t k = 0; k < n; k += 7) left[k] = bad, cleanLeft[k] = 0.0f;
                std::fill(right.begin(), right.end(), bad);
                std::fill(cleanRight.begin(), cleanRight.end(), 0.0f);
            }
            a.run(plugin, left, right);
            b.run(twin, cleanLeft, cleanRight);
            ASSERT_EQ(a.out0, b.out0) << bad << " block " << i;
            ASSERT_EQ(a.out1, b.out1) << bad << " block " << i;
        }
        EXPECT_TRUE(sane(a.out0));
        EXPECT_GT(rms(a.out0), 1e-3);
    }
}

TEST(PluginHostProof, ARunawayStateRecoversWithinOneBlock) {
    // Finite input so large that the stages overflow (the tube tables downstream hide it as a
    // constant): the block comes out silent, every state is cleared, and from the next block on
    // the instance plays again, finite, and after the stages have found their operating points
    // once more (a new instance starts there already) as a new one would.
    const size_t n = 256;
    Instance plugin;
    plugin.start(48000.0f, static_cast<int>(n));
    plugin.setParameter(kInput, 1.0f);
    Block block(n), fresh(n);
    std::vector<float> huge(n), music = tone(n, 440.0);
    for (size_t k = 0; k < n; ++k) huge[k] = (k / 8) % 2 ? 3e38f : -3e38f;
    for (int i = 0; i < 4; ++i) block.run(plugin, music, music);
    block.run(plugin, huge, huge);
    EXPECT_TRUE(sane(block.out0));
    EXPECT_EQ(block.out0, std::vector<float>(n, 0.0f));
    EXPECT_EQ(plugin.recoveries(), 1);

    Instance reference;
    reference.start(48000.0f, static_cast<int>(n));
    reference.setParameter(kInput, 1.0f);
    for (int i = 0; i < 400; ++i) {
        block.run(plugin, music, music);
        fresh.run(reference, music, music);
        ASSERT_TRUE(sane(block.out0)) << i;
    }
    double peak = 0;
    for (float v : fresh.out0) peak = std::fmax(peak, std::fabs(v));
    for (size_t k = 0; k < n; ++k) ASSERT_NEAR(block.out0[k], fresh.out0[k], 1e-4 * peak) << k;
    EXPECT_GT(rms(block.out0), 1e-3);
    EXPECT_EQ(plugin.recoveries(), 1);
    EXPECT_EQ(plugin.failedBlocks(), 0);
}

TEST(PluginHostProof, EveryEntryPointGivesTheCallersFloatingPointModeBack) {
    // The processor's default, flush-to-zero alone, and rounding towards zero with denormals.
    for (uint32_t mode : {0x1f80u, 0x9f80u, 0x7f80u}) {
        _mm_setcsr(mode);
        std::unique_ptr<Instance> plugin(new Instance());
        EXPECT_EQ(modeBits(), mode) << "VSTPluginMain " << std::hex << mode;
        plugin->start(48000.0f, 64);
        EXPECT_EQ(modeBits(), mode) << "dispatcher " << std::hex << mode;
        plugin->setParameter(kOversampling, 1.0f);
        EXPECT_EQ(modeBits(), mode) << "setParameter " << std::hex << mode;
        (void)plugin->getParameter(kVol);
        EXPECT_EQ(modeBits(), mode) << "getParameter " << std::hex << mode;
        testhost::Channels io(64, 0.25f);
        plugin->process(io.pointers, io.pointers, 64);
        EXPECT_EQ(modeBits(), mode) << "processReplacing " << std::hex << mode;
        plugin->dispatch(effMainsChanged, 0, 0);
        plugin->process(io.pointers, io.pointers, 64);  // refused while suspended
        EXPECT_EQ(modeBits(), mode) << "refused processReplacing " << std::hex << mode;
        plugin->dispatch(effSetBlockSize, 0, -1);
        EXPECT_EQ(modeBits(), mode) << "refused block size " << std::hex << mode;
        plugin->close();
        EXPECT_EQ(modeBits(), mode) << "effClose " << std::hex << mode;
    }
    _mm_setcsr(0x1f80u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(PluginHostProof, ClosingGivesTheMemoryBack) {
    // The heap in use, in bytes, as the C library counts it (mapped blocks included).  The
    // sanitizers keep their own heaps: there LeakSanitizer checks the same.
    auto inUse = [] {
        struct mallinfo2 info = mallinfo2();
        return static_cast<long>(info.uordblks + info.hblkhd);
    };
    auto cycle = [] {
        Instance plugin;
        plugin.start(48000.0f, 512);
        testhost::Channels io(512, 0.1f);
        for (int i = 0; i < 4; ++i) plugin.process(io.pointers, io.pointers, 512);
    };
    cycle();
    const long before = inUse();
    for (int i = 0; i < 5; ++i) cycle();
    const long growth = inUse() - before;
    std::printf("[ figures  ] heap in use after five more open/close cycles: %+ld bytes\n", growth);
    // An instance holds megabytes (tables, responses, buffers): a leak of one is far above this.
    EXPECT_LT(growth, 64 * 1024);
}
#endif
