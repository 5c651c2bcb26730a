// The complete amplifier measured through its VST2 interface at 48 kHz, blocks of 256, default
// controls unless a test says otherwise: level and harmonic distortion against drive, the two CPU
// modes against each other, aliasing against the oversampling factor, and switching the factor
// while audio runs.  The figures are printed; the tests assert what must hold whatever the exact
// tube data: finite and bounded output, distortion rising with drive, CPU modes agreeing for small
// signals and parting at full drive, aliasing falling as the factor rises, no gap on a switch.
//
// Spectra are plain DFTs at the frequencies that matter.  Analysis windows are one second long,
// so 220 Hz and 5 kHz complete whole periods and every harmonic (and every alias, which lands on
// a multiple of 1 kHz) falls exactly on a bin: no window function is needed.

#include <cmath>
#include <cstdio>
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
    double thd[4][3], out[4][3];
    std::printf("220 Hz sine, default controls but Volume: output level (dBFS, fundamental) / THD (dB)\n");
    std::printf("  Volume   -24 dBFS in        -12 dBFS in        -6 dBFS in\n");
    for (int v = 0; v < 4; ++v) {
        std::printf("  %.2f  ", volumes[v]);
        for (int l = 0; l < 3; ++l) {
            const std::vector<float> y = render(sine(220.0, levels[l], 3 * kSecond / 2), {{kGain, volumes[v]}});
            EXPECT_TRUE(finiteAndBounded(y, 1.0f)) << volumes[v] << " " << levels[l];
            const Harmonics h = analyse(y, 220.0);
            out[v][l] = dbfs(h.fundamental);
            thd[v][l] = h.thdDb();
            std::printf("  %7.2f / %6.2f  ", out[v][l], thd[v][l]);
        }
        std::printf("\n");
    }
    for (int v = 0; v < 4; ++v) {
        // A louder input distorts more at every setting of the knob...
        EXPECT_LT(thd[v][0], thd[v][1]) << volumes[v];
        EXPECT_LT(thd[v][1], thd[v][2]) << volumes[v];
        // ...and the stages compress: 18 dB more input gives clearly less than 18 dB more output.
        EXPECT_LT(out[v][2] - out[v][0], 18.0 - 3.0) << volumes[v];
    }
    for (int l = 0; l < 3; ++l) {
        // More Volume, more distortion, at every input level.
        for (int v = 0; v + 1 < 4; ++v) EXPECT_LT(thd[v][l], thd[v + 1][l]) << volumes[v] << " " << levels[l];
    }
    // The cleanest and the most driven settings lie far apart.
    EXPECT_GT(thd[3][2] - thd[0][0], 20.0);
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
    std::printf("5 kHz sine at -6 dBFS, Volume 1, Input 1: energy off the harmonic series\n");
    for (int i = 0; i < 3; ++i) {
        const std::vector<float> y = render(in, {{kGain, 1.0f}, {kInput, 1.0f}, {kOversampling, positions[i]}});
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
