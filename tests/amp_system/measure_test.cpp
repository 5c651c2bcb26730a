// The complete amplifier measured through its VST2 interface at 48 kHz, blocks of 256, default
// controls unless a test says otherwise: level and harmonic distortion against drive, the two CPU
// modes against each other, aliasing against the oversampling factor, and switching the factor
// while audio runs.  The figures are printed; the tests assert what must hold whatever the exact
// tube data: finite and bounded output, distortion rising with drive, CPU modes agreeing for small
// signals and parting at full drive, aliasing falling as the factor rises, no gap on a switch.
// Further down: the switches (cabinet, stereo, every combination), silence, and the cost of a block.
//
// Spectra are plain DFTs at the frequencies that matter.  Analysis windows are one second long,
// so 220 Hz and 5 kHz complete whole periods and every harmonic (and every alias, which lands on
// a multiple of 1 kHz) falls exactly on a bin: no window function is needed.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

using testhost::Instance;

namespace {

enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

constexpr double kRate = 48000.0;
constexpr size_t kBlock = 256;
constexpr size_t kSecond = 48000;

typedef std::vector<std::pair<Parameter, float>> Settings;

double dbfs(double amplitude) { return 20.0 * std::log10(amplitude); }

std::vector<float> sine(double frequency, double levelDbfs, size_t frames) {
    const double amplitude = std::pow(10.0, levelDbfs / 20.0);
    std::vector<float> x(frames);
    for (size_t i = 0; i < frames; ++i)
        x[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * double(i) / kRate));
    return x;
}

// Output 0 of a fresh instance for the whole input.  beforeBlock runs before each block with the
// block's index, to turn controls while audio runs.
std::vector<float> render(const std::vector<float>& input, const Settings& settings,
                          const std::function<void(Instance&, size_t)>& beforeBlock = nullptr) {
    Instance plugin;
    plugin.start(static_cast<float>(kRate), static_cast<int>(kBlock));
    for (const auto& setting : settings) plugin.setParameter(setting.first, setting.second);
    std::vector<float> output(input.size()), right(kBlock);
    for (size_t at = 0, block = 0; at < input.size(); at += kBlock, ++block) {
        if (beforeBlock) beforeBlock(plugin, block);
        const size_t frames = std::min(kBlock, input.size() - at);
        float* inputs[2] = {const_cast<float*>(input.data()) + at, const_cast<float*>(input.data()) + at};
        float* outputs[2] = {output.data() + at, right.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(frames));
    }
    return output;
}

// The DFT of x[start .. start + n) at one frequency, as a peak amplitude.
double amplitudeAt(const std::vector<float>& x, size_t start, size_t n, double frequency) {
    double re = 0, im = 0;
    const double step = 2.0 * M_PI * frequency / kRate;
    for (size_t i = 0; i < n; ++i) {
        const double phase = step * double(i);
        re += x[start + i] * std::cos(phase);
        im -= x[start + i] * std::sin(phase);
    }
    const double scale = (frequency == 0.0 ? 1.0 : 2.0) / double(n);
    return std::hypot(re, im) * scale;
}

// Mean square of x[start .. start + n).
double meanSquare(const std::vector<float>& x, size_t start, size_t n) {
    double sum = 0;
    for (size_t i = 0; i < n; ++i) sum += double(x[start + i]) * x[start + i];
    return sum / double(n);
}

struct Harmonics {
    double fundamental = 0;  // peak amplitude
    double harmonicPower = 0;  // mean square in the harmonics from the second up to the band edge
    double seriesPower = 0;  // mean square in DC, the fundamental and all its harmonics
    double totalPower = 0;
    double thdDb() const { return 10.0 * std::log10(harmonicPower / (0.5 * fundamental * fundamental)); }
    // Energy off the harmonic series (aliases, noise) against the energy on it.
    double offSeriesDb() const { return 10.0 * std::log10((totalPower - seriesPower) / seriesPower); }
};

// The last second of x against the harmonic series of f (below 24 kHz).
Harmonics analyse(const std::vector<float>& x, double f) {
    Harmonics h;
    const size_t start = x.size() - kSecond;
    h.totalPower = meanSquare(x, start, kSecond);
    const double dc = amplitudeAt(x, start, kSecond, 0.0);
    h.seriesPower = dc * dc;
    for (int k = 1; k * f < kRate / 2; ++k) {
        const double a = amplitudeAt(x, start, kSecond, k * f);
        if (k == 1)
            h.fundamental = a;
        else
            h.harmonicPower += 0.5 * a * a;
        h.seriesPower += 0.5 * a * a;
    }
    return h;
}

::testing::AssertionResult finiteAndBounded(const std::vector<float>& x, float bound) {
    for (size_t i = 0; i < x.size(); ++i)
        if (!std::isfinite(x[i]) || std::fabs(x[i]) >= bound)
            return ::testing::AssertionFailure() << "sample " << i << ": " << x[i];
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(AmpSystem, LevelAndDistortionRiseWithDrive) {
    const float volumes[] = {0.25f, 0.5f, 0.75f, 1.0f};
    const double levels[] = {-24.0, -12.0, -6.0};
    for (int cpu = 0; cpu < 2; ++cpu) {
        double thd[4][3], out[4][3];
        std::printf("220 Hz sine, %s CPU, default controls but Volume: output level (dBFS, fundamental) / THD (dB)\n",
                    cpu ? "high" : "low");
        std::printf("  Volume   -24 dBFS in        -12 dBFS in        -6 dBFS in\n");
        for (int v = 0; v < 4; ++v) {
            std::printf("  %.2f  ", volumes[v]);
            for (int l = 0; l < 3; ++l) {
                const std::vector<float> y =
                    render(sine(220.0, levels[l], 3 * kSecond / 2), {{kGain, volumes[v]}, {kCPU, float(cpu)}});
                EXPECT_TRUE(finiteAndBounded(y, 1.0f)) << volumes[v] << " " << levels[l] << " CPU " << cpu;
                const Harmonics h = analyse(y, 220.0);
                out[v][l] = dbfs(h.fundamental);
                thd[v][l] = h.thdDb();
                std::printf("  %7.2f / %6.2f  ", out[v][l], thd[v][l]);
            }
            std::printf("\n");
        }
        for (int v = 0; v < 4; ++v) {
            // A louder input distorts more at every setting of the knob...
            EXPECT_LT(thd[v][0], thd[v][1]) << volumes[v] << " CPU " << cpu;
            EXPECT_LT(thd[v][1], thd[v][2]) << volumes[v] << " CPU " << cpu;
            // ...and the stages compress: 18 dB more input gives clearly less than 18 dB more output.
            EXPECT_LT(out[v][2] - out[v][0], 18.0 - 3.0) << volumes[v] << " CPU " << cpu;
        }
        for (int l = 0; l < 3; ++l) {
            // More Volume, more distortion, at every input level.  In high-CPU mode the power
            // stage's curve has stretches that rise, so a stage already in full saturation may
            // distort a little less when pushed harder: half a decibel is allowed there.
            const double slack = cpu ? 0.5 : 0.0;
            for (int v = 0; v + 1 < 4; ++v)
                EXPECT_LT(thd[v][l], thd[v + 1][l] + slack) << volumes[v] << " " << levels[l] << " CPU " << cpu;
        }
        // The cleanest and the most driven settings lie far apart.
        EXPECT_GT(thd[3][2] - thd[0][0], 20.0) << "CPU " << cpu;
    }
}

TEST(AmpSystem, CpuModesAgreeForSmallSignalsAndPartAtFullDrive) {
    const std::vector<float> quiet = sine(220.0, -24.0, 3 * kSecond / 2);
    const std::vector<float> loud = sine(220.0, -6.0, 3 * kSecond / 2);
    const Settings small = {{kGain, 0.25f}};
    const Settings full = {{kGain, 1.0f}, {kInput, 1.0f}};
    auto difference = [](const std::vector<float>& low, const std::vector<float>& high) {
        std::vector<float> d(low.size());
        for (size_t i = 0; i < low.size(); ++i) d[i] = high[i] - low[i];
        const size_t start = low.size() - kSecond;
        return 10.0 * std::log10(meanSquare(d, start, kSecond) / meanSquare(low, start, kSecond));
    };
    Settings smallHigh = small, fullHigh = full;
    smallHigh.push_back({kCPU, 1.0f});
    fullHigh.push_back({kCPU, 1.0f});
    const std::vector<float> smallLow = render(quiet, small), smallHi = render(quiet, smallHigh);
    const std::vector<float> fullLow = render(loud, full), fullHi = render(loud, fullHigh);
    EXPECT_TRUE(finiteAndBounded(fullLow, 2.0f));
    EXPECT_TRUE(finiteAndBounded(fullHi, 2.0f));
    const double smallDb = difference(smallLow, smallHi), fullDb = difference(fullLow, fullHi);
    std::printf("CPU high against low, difference relative to the low-CPU output:\n"
                "  small signal (-24 dBFS, Volume 0.25): %.1f dB\n"
                "  full drive (-6 dBFS, Volume 1, Input 1): %.1f dB\n"
                "  THD low / high at full drive: %.2f / %.2f dB\n",
                smallDb, fullDb, analyse(fullLow, 220.0).thdDb(), analyse(fullHi, 220.0).thdDb());
    // Without grid current the two branches are the same networks and the same curves.
    EXPECT_LT(smallDb, -60.0);
    // With it, the loaded networks and the high-CPU curves change the sound audibly.
    EXPECT_GT(fullDb, -20.0);
}

TEST(AmpSystem, AliasingFallsAsTheOversamplingFactorRises) {
    const std::vector<float> in = sine(5000.0, -6.0, 3 * kSecond / 2);
    const float positions[] = {0.0f, 0.5f, 1.0f};
    double aliasDb[3];
    // The cabinet out: its top (set by the stated pulse of its response) would weigh the aliases
    // by where they land; the stages' aliasing is what the factor governs.
    std::printf("5 kHz sine at -6 dBFS, Volume 1, Input 1, cabinet out: energy off the harmonic series\n");
    for (int i = 0; i < 3; ++i) {
        const std::vector<float> y =
            render(in, {{kGain, 1.0f}, {kInput, 1.0f}, {kOversampling, positions[i]}, {kCabinet, 0.0f}});
        EXPECT_TRUE(finiteAndBounded(y, 2.0f));
        const Harmonics h = analyse(y, 5000.0);
        aliasDb[i] = h.offSeriesDb();
        std::printf("  factor %d: %.1f dB (THD %.1f dB)\n", 2 << i, aliasDb[i], h.thdDb());
    }
    EXPECT_GT(aliasDb[0], aliasDb[1] + 3.0);
    EXPECT_GT(aliasDb[1], aliasDb[2] + 3.0);
}

TEST(AmpSystem, SwitchingTheFactorWhileAudioRunsLeavesNoNanAndNoGap) {
    // Two seconds of a 220 Hz tone; the factor steps every 25 blocks (133 ms) through 2, 8, 4, 2, ...
    const std::vector<float> in = sine(220.0, -12.0, 2 * kSecond);
    const float cycle[] = {0.0f, 1.0f, 0.5f};
    const std::vector<float> y = render(in, {}, [&](Instance& plugin, size_t block) {
        if (block % 25 == 0) plugin.setParameter(kOversampling, cycle[(block / 25) % 3]);
    });
    EXPECT_TRUE(finiteAndBounded(y, 1.0f));
    // After the cabinet's own delay, every stretch of 5 ms (a period of 220 Hz) carries signal:
    // the quietest one against the mean level.
    const size_t window = 240;
    const double mean = meanSquare(y, kSecond / 2, kSecond);
    double quietest = mean;
    for (size_t at = kSecond / 10; at + window <= y.size(); at += window / 4)
        quietest = std::fmin(quietest, meanSquare(y, at, window));
    std::printf("Oversampling switched every 133 ms: quietest 5 ms against the mean: %.1f dB\n",
                10.0 * std::log10(quietest / mean));
    EXPECT_GT(quietest, mean * 0.25);
}

// ---- Switches, silence, and the cost of a block ---------------------------------------------------

namespace {

double threadSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// Plucked strings (Karplus-Strong) on a fixed seed: a note every 125 ms, each ringing for three
// steps, so up to three overlap; peaks stay below 1.
std::vector<float> riff(size_t frames) {
    const double notes[] = {82.41, 123.47, 164.81, 196.0, 220.0, 246.94, 293.66, 329.63};
    const size_t step = kSecond / 8;
    uint32_t state = 20261122u;
    std::vector<float> out(frames, 0.0f);
    for (size_t n = 0; n * step < frames; ++n) {
        std::vector<double> line(static_cast<size_t>(kRate / notes[(n * 5) % 8] + 0.5));
        for (double& s : line) {
            state = state * 1664525u + 1013904223u;
            s = state / 2147483648.0 - 1.0;
        }
        double previous = 0;
        for (size_t i = 0; i < 3 * step && n * step + i < frames; ++i) {
            const double current = line[i % line.size()];
            line[i % line.size()] = 0.996 * 0.5 * (current + previous);
            previous = current;
            out[n * step + i] += static_cast<float>(0.3 * current);
        }
    }
    return out;
}

struct StereoOut {
    std::vector<float> left, right;
    std::vector<double> blockSeconds;  // thread CPU time of each processReplacing call
};

// Both outputs of a fresh instance fed from two separate input buffers.
StereoOut renderStereo(const std::vector<float>& left, const std::vector<float>& right, const Settings& settings) {
    Instance plugin;
    plugin.start(static_cast<float>(kRate), static_cast<int>(kBlock));
    for (const auto& setting : settings) plugin.setParameter(setting.first, setting.second);
    StereoOut out;
    out.left.resize(left.size());
    out.right.resize(left.size());
    out.blockSeconds.reserve(left.size() / kBlock + 1);
    for (size_t at = 0; at < left.size(); at += kBlock) {
        float* inputs[2] = {const_cast<float*>(left.data()) + at, const_cast<float*>(right.data()) + at};
        float* outputs[2] = {out.left.data() + at, out.right.data() + at};
        const double before = threadSeconds();
        plugin.process(inputs, outputs, static_cast<int32_t>(std::min(kBlock, left.size() - at)));
        out.blockSeconds.push_back(threadSeconds() - before);
    }
    return out;
}

// Audio seconds per CPU second over the blocks [first, last).
double realtimeFactor(const StereoOut& out, size_t first, size_t last) {
    double cpu = 0;
    for (size_t b = first; b < last; ++b) cpu += out.blockSeconds[b];
    return double((last - first) * kBlock) / kRate / cpu;
}

::testing::AssertionResult identical(const std::vector<float>& a, const std::vector<float>& b) {
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i]) return ::testing::AssertionFailure() << "sample " << i << ": " << a[i] << " != " << b[i];
    return ::testing::AssertionSuccess();
}

// Frames from the start of x until `share` of its energy has arrived.
size_t energyLength(const std::vector<float>& x, double share) {
    const double total = meanSquare(x, 0, x.size()) * double(x.size());
    double sum = 0;
    for (size_t i = 0; i < x.size(); ++i)
        if ((sum += double(x[i]) * x[i]) >= share * total) return i + 1;
    return x.size();
}

}  // namespace

TEST(AmpSystem, CabinetSpreadsAnImpulseOverItsResponse) {
    // The response to a click at one second, less the same run without it, so that the start-up
    // settling of the DC block cancels.  Half a second after the click is longer than the cabinet.
    const size_t at = kSecond, span = kSecond / 2;
    std::vector<float> click(at + span, 0.0f), none(at + span, 0.0f);
    click[at] = 0.1f;
    size_t lengths[2];
    double energies[2], lateShare[2];
    for (int cabinet = 0; cabinet < 2; ++cabinet) {
        const Settings settings = {{kCabinet, float(cabinet)}};
        const StereoOut y = renderStereo(click, click, settings), y0 = renderStereo(none, none, settings);
        EXPECT_TRUE(finiteAndBounded(y.left, 1.0f)) << cabinet;
        std::vector<float> response(span);
        for (size_t i = 0; i < span; ++i) response[i] = y.left[at + i] - y0.left[at + i];
        lengths[cabinet] = energyLength(response, 0.999);
        energies[cabinet] = meanSquare(response, 0, span) * double(span);
        // 8192 taps at 44.1 kHz last 8916 frames at 48 kHz; allow for the filters ahead of it.
        lateShare[cabinet] = meanSquare(response, 9500, span - 9500) * double(span - 9500) / energies[cabinet];
    }
    std::printf("Click of 0.1 at default controls: 99.9%% of the energy within %zu frames with the cabinet out,\n"
                "  %zu frames (%.1f ms) with it in; energy %.3g / %.3g; share after 9500 frames %.2g / %.2g\n",
                lengths[0], lengths[1], 1000.0 * double(lengths[1]) / kRate, energies[0], energies[1], lateShare[0],
                lateShare[1]);
    // Without the cabinet the amplifier's own filters ring briefly; the cabinet spreads the click
    // over milliseconds and ends where its response ends.
    EXPECT_LT(lengths[0], 960u);  // 20 ms
    EXPECT_GT(lengths[1], 5 * lengths[0]);
    EXPECT_LT(lateShare[1], 1e-6);
}

TEST(AmpSystem, StereoOffCopiesTheFirstChannelAndStereoOnRunsTwoEqualChains) {
    const std::vector<float> guitar = riff(kSecond), other = sine(330.0, -12.0, kSecond);
    // Off (the default): the second input is ignored and output 1 is output 0, bit for bit.
    const StereoOut off = renderStereo(guitar, other, {});
    EXPECT_TRUE(finiteAndBounded(off.left, 1.0f));
    EXPECT_TRUE(identical(off.left, off.right));
    for (float cpu : {0.0f, 1.0f}) {
        // On: two separate buffers with the same samples give the same output from both chains...
        const std::vector<float> copy = guitar;
        const StereoOut on = renderStereo(guitar, copy, {{kStereo, 1.0f}, {kCPU, cpu}});
        EXPECT_TRUE(finiteAndBounded(on.left, 1.0f)) << cpu;
        EXPECT_TRUE(identical(on.left, on.right)) << cpu;
        // The first chain does not care whether the second runs.
        if (cpu == 0.0f) {
            EXPECT_TRUE(identical(on.left, off.left));
        }
        // ...and with different inputs each chain follows its own input as the other would.
        const StereoOut apart = renderStereo(guitar, other, {{kStereo, 1.0f}, {kCPU, cpu}});
        const StereoOut swapped = renderStereo(other, guitar, {{kStereo, 1.0f}, {kCPU, cpu}});
        EXPECT_TRUE(identical(apart.left, on.left)) << cpu;
        EXPECT_TRUE(identical(swapped.right, on.left)) << cpu;
        EXPECT_TRUE(identical(apart.right, swapped.left)) << cpu;
        EXPECT_FALSE(identical(apart.left, apart.right)) << cpu;
    }
}

TEST(AmpSystem, SilenceAfterTheTailAndNoSlowdownOnSilence) {
    // Two seconds of riff, then three of silence.
    std::vector<float> in = riff(2 * kSecond);
    in.resize(5 * kSecond, 0.0f);
    const StereoOut y = renderStereo(in, in, {{kGain, 1.0f}, {kInput, 1.0f}});
    EXPECT_TRUE(finiteAndBounded(y.left, 2.0f));
    // The cabinet lasts 0.19 s and the DC block's pole at 0.9995 needs 0.4 s more to bring a
    // shift of the tubes' operating point under a millionth.
    size_t lastLoud = 0;
    for (size_t i = 0; i < y.left.size(); ++i)
        if (std::fabs(y.left[i]) >= 1e-6f) lastLoud = i;
    std::printf("Riff at full drive, then silence: the output stays under 1e-6 from %.3f s after the riff\n",
                double(lastLoud + 1) / kRate - 2.0);
    EXPECT_LT(lastLoud, 3 * kSecond);
    // Blocks of signal (after the first quarter second) against blocks of settled silence.
    const size_t perSecond = kSecond / kBlock;
    const double signal = realtimeFactor(y, perSecond / 4, 2 * perSecond);
    const double silence = realtimeFactor(y, 3 * perSecond, y.blockSeconds.size());
    std::printf("  realtime factor on signal %.1f, on silence %.1f\n", signal, silence);
    // Loose on purpose: a denormal storm costs ten times or more.
    EXPECT_GT(silence, signal / 3.0);
}

TEST(AmpSystem, EverySwitchAndFactorWithKnobsAtTheEndsStaysFinite) {
    // 3 factors x CPU x Cabinet x Stereo x knobs all at 0 or all at 1: 48 runs of the riff.
    const size_t frames = 2 * kSecond;
    const std::vector<float> in = riff(frames);
    int runs = 0;
    float peak = 0;
    for (float factor : {0.0f, 0.5f, 1.0f})
        for (int switches = 0; switches < 8; ++switches)
            for (float knobs : {0.0f, 1.0f}) {
                const Settings settings = {
                    {kOversampling, factor},       {kCPU, float(switches & 1)}, {kCabinet, float((switches >> 1) & 1)},
                    {kStereo, float(switches >> 2)}, {kGain, knobs},           {kFeedback, knobs},
                    {kVol, knobs},                 {kInput, knobs}};
                const StereoOut y = renderStereo(in, in, settings);
                EXPECT_TRUE(finiteAndBounded(y.left, 1e30f)) << "factor " << factor << " switches " << switches << " knobs " << knobs;
                EXPECT_TRUE(finiteAndBounded(y.right, 1e30f)) << "factor " << factor << " switches " << switches;
                for (float x : y.left) peak = std::fmax(peak, std::fabs(x));
                ++runs;
            }
    std::printf("%d runs of %.0f s of riff over every switch, factor and knob end: all finite, peak %.3f\n", runs,
                double(frames) / kRate, peak);
}

TEST(AmpSystem, RealtimeFactorsAreReported) {
    // Printed only: the figures belong to the build type and the machine.
    const std::vector<float> in = riff(2 * kSecond);
    const std::pair<const char*, Settings> cases[] = {{"defaults", {}},
                                                       {"high CPU", {{kCPU, 1.0f}}},
                                                       {"factor 8", {{kOversampling, 1.0f}}},
                                                       {"stereo on", {{kStereo, 1.0f}}}};
    std::printf("Realtime factors, 48 kHz, blocks of 256, 2 s of riff:");
    for (const auto& c : cases) {
        const StereoOut y = renderStereo(in, in, c.second);
        std::printf(" %s %.1f;", c.first, realtimeFactor(y, 0, y.blockSeconds.size()));
    }
    std::printf("\n");
}
