#include "U87Model.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

// The model, stage by stage (all in double precision at 44100 Hz, analog prototypes mapped by the
// bilinear transform with the corner pre-warped):
//
// 1. Driver in a closed box (Thiele-Small): the cone's mass and the box's air spring make a
//    second-order high pass at 82 Hz with Qtc 1.3, hence the bump between 80 and 100 Hz and
//    12 dB per octave below it.
// 2. Cone breakup: the paper cone stops moving as a piston above about 1 kHz; its bending modes
//    show as resonant peaks at 1.7, 2.5 and 3.4 kHz (+4.5, +6, +5 dB) and a dip at 1.2 kHz.
// 3. Voice-coil inductance and the mass of the cone: a first-order low pass at 1.6 kHz and a
//    fourth-order low pass at 11.6 kHz (two sections, Q 0.50 and 3.0), fitted with the dust cap
//    below so that the pulse comes close to its stated shape.
// 4. The microphone, a few centimetres from the dust cap: proximity effect (a first-order low
//    shelf, +1.5 dB below 150 Hz) and its own low-frequency limit (first-order high pass at
//    30 Hz).  The dust cap, nearer to the microphone than the cone, is heard 0.09 ms earlier: a
//    band-limited (1.7 to 6 kHz) inverted copy at 0.85 of the cone's level; it makes the dip
//    four samples before the peak.
// 5. The room: early reflections from the baffle's edges (0.45 ms, inverted), the floor (1.35 ms),
//    the back wall (3.1 ms), a side wall (4.7 ms) and the ceiling (6.9 ms), each attenuated and
//    dulled by a one-pole low pass; then a diffuse tail of Gaussian noise from 9 ms on, decaying
//    with T60 = 0.12 s, band-limited to 300 Hz - 2.5 kHz (the small room's absorbers take the
//    lows).  The speaker's sound is convolved with this room response.
// 6. The capture: the recording chain's latency puts the speaker's strongest sample at index 973
//    (the pulse starts near index 960, 22 ms); the whole is scaled so that this sample is 32766
//    steps; the take's noise floor is added (Gaussian, 2.3 steps RMS and at most 6 before the
//    pulse, about 0.6 steps RMS after the capture's noise gate), everything is rounded to 16
//    bits, and the take ends at index 22614, followed by zero padding up to 27776 samples.
// 7. What the response keeps exactly is pinned by the capture, not modelled: the first six
//    samples, the eight samples around the peak (the model's pulse is close to them, not equal),
//    the sum of squares 4.87106 (the diffuse tail's level is set by bisection to reach it) and
//    the 12455 non-zero samples (the noise floor after the gate is set by bisection to reach
//    them).
// The random numbers come from std::mt19937_64 (fully specified by the standard) with fixed
// seeds, through our own Box-Muller transform, so the data is the same wherever it is rebuilt.

namespace ampdata_gen {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    double run(double x) {
        const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        return y;
    }
};

// Second-order sections from the analog prototypes (b2 s^2 + b1 s + b0) / (s^2 + s w/Q + w^2)
// with s = k (1 - 1/z) / (1 + 1/z), k chosen so that the corner f0 maps exactly.
Biquad bilinear2(double f0, double nb2, double nb1, double nb0, double db1, double db0) {
    const double w = 2 * kPi * f0;
    const double k = w / std::tan(w / (2 * kU87Rate));
    const double kk = k * k;
    const double a0 = kk + db1 * k + db0;
    Biquad q;
    q.b0 = (nb2 * kk + nb1 * k + nb0) / a0;
    q.b1 = (2 * nb0 - 2 * nb2 * kk) / a0;
    q.b2 = (nb2 * kk - nb1 * k + nb0) / a0;
    q.a1 = (2 * db0 - 2 * kk) / a0;
    q.a2 = (kk - db1 * k + db0) / a0;
    return q;
}

Biquad highPass(double f0, double Q) {
    const double w = 2 * kPi * f0;
    return bilinear2(f0, 1, 0, 0, w / Q, w * w);
}

Biquad lowPass(double f0, double Q) {
    const double w = 2 * kPi * f0;
    return bilinear2(f0, 0, 0, w * w, w / Q, w * w);
}

// A resonance (gainDb > 0) or notch-like dip (gainDb < 0) of bandwidth f0 / Q.
Biquad peak(double f0, double Q, double gainDb) {
    const double w = 2 * kPi * f0;
    const double g = std::pow(10.0, gainDb / 40.0);
    return bilinear2(f0, 1, w * g / Q, w * w, w / (g * Q), w * w);
}

// First-order sections: (nb1 s + nb0) / (s + w).
Biquad bilinear1(double f0, double nb1, double nb0) {
    const double w = 2 * kPi * f0;
    const double k = w / std::tan(w / (2 * kU87Rate));
    const double a0 = k + w;
    Biquad q;
    q.b0 = (nb1 * k + nb0) / a0;
    q.b1 = (nb0 - nb1 * k) / a0;
    q.a1 = (w - k) / a0;
    return q;
}

Biquad lowPass1(double f0) { return bilinear1(f0, 0, 2 * kPi * f0); }
Biquad highPass1(double f0) { return bilinear1(f0, 1, 0); }

// Low shelf: gain g below f0, 1 above: (s + g w) / (s + w).
Biquad lowShelf1(double f0, double gainDb) {
    const double g = std::pow(10.0, gainDb / 20.0);
    return bilinear1(f0, 1, g * 2 * kPi * f0);
}

void runCascade(std::vector<Biquad> cascade, std::vector<double>& signal) {
    for (double& v : signal)
        for (Biquad& q : cascade) v = q.run(v);
}

const int kSpeakerLength = 4096;
// The voice coil's first-order and the cone's fourth-order low pass, the dust cap's band and
// level: fitted so that the pulse comes close to its stated shape (a deep dip four samples before
// the peak, a steep rise, a slower fall) while the spectrum keeps its features.
const double kCoilHz = 1607.5, kConeHz = 11573.8, kConeQ[2] = {0.5044, 3.0};
const double kCapLowHz = 1682.9, kCapHighHz = 6000, kCapLevel = 0.85;
const double kMicLowHz = 30.0;  // the microphone's own low-frequency limit
const int kTakeLength = 22615;  // the last sample of the take is index 22614
const int kNoiseGate = 960;     // the capture's gate opens with the pulse
const int kPeakIndex = 973;
const int kPeakSteps = 32766;
// Values the response keeps exactly, pinned by the capture: its first six samples (noise), the
// eight samples around the peak (973 - 4 to 973 + 3), the count of non-zero samples and the sum
// of squares (reached by the level of the diffuse tail and the noise floor after the gate).
const double kFirstSteps[6] = {-3, 1, 1, 3, 5, -1};
const double kPeakSteps8[8] = {-20484, -4924, 1349, 13051, 32766, 32150, 26061, 13352};
const int kNonZero = 12455;
const double kSumOfSquares = 4.87106;
const double kGatedNoise = 0.59;  // steps RMS after the gate, before it is tuned

// The speaker and microphone response to an impulse at index 0.
std::vector<double> speakerResponse() {
    std::vector<double> cone(kSpeakerLength, 0.0);
    cone[0] = 1.0;
    runCascade({highPass(82.0, 1.3), peak(1200.0, 2.0, -3.0), peak(1700.0, 3.0, 4.5), peak(2500.0, 3.5, 6.0),
                peak(3400.0, 4.0, 5.0), lowPass1(kCoilHz), lowPass(kConeHz, kConeQ[0]), lowPass(kConeHz, kConeQ[1]),
                lowShelf1(150.0, 1.5), highPass1(kMicLowHz)},
               cone);
    // The dust cap: small, stiff, nearer to the microphone; it radiates the highs first.
    const int capLead = 4;  // 0.09 ms
    std::vector<double> cap(kSpeakerLength, 0.0);
    cap[0] = 1.0;
    runCascade({highPass(kCapLowHz, 0.7), lowPass(kCapHighHz, 0.7), lowPass(kCapHighHz, 0.7)}, cap);
    std::vector<double> out(kSpeakerLength + capLead, 0.0);
    for (int n = 0; n < kSpeakerLength; ++n) {
        out[n + capLead] += cone[n];
        out[n] -= kCapLevel * cap[n];
    }
    return out;
}

// Box-Muller on the generator's raw bits (the library's distributions differ between libraries).
double gaussian(std::mt19937_64& random) {
    const double u1 = (static_cast<double>(random() >> 11) + 0.5) * 0x1.0p-53;
    const double u2 = (static_cast<double>(random() >> 11) + 0.5) * 0x1.0p-53;
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(2 * kPi * u2);
}

struct Reflection {
    double delayMs;
    double gain;
    double dullHz;
};

// The room response seen from the microphone, in two parts: the direct sound with the early
// reflections, and the diffuse tail at unit level (the response adds it at its tuned level).
struct Room {
    std::vector<double> early, diffuse;
};

Room roomResponse(std::mt19937_64& random) {
    Room room{std::vector<double>(kTakeLength, 0.0), std::vector<double>(kTakeLength, 0.0)};
    room.early[0] = 1.0;
    const Reflection reflections[] = {
        {0.45, -0.20, 7000.0},  // diffraction at the baffle's edges, inverted
        {1.35, 0.30, 4500.0},   // floor under the cabinet
        {3.10, 0.21, 3200.0},   // back wall
        {4.70, 0.16, 2600.0},   // side wall
        {6.90, 0.12, 2200.0},   // ceiling
    };
    for (const Reflection& r : reflections) {
        std::vector<double> echo(kTakeLength, 0.0);
        const int d = static_cast<int>(std::lround(r.delayMs * 1e-3 * kU87Rate));
        echo[d] = r.gain;
        runCascade({lowPass1(r.dullHz)}, echo);
        for (int n = 0; n < kTakeLength; ++n) room.early[n] += echo[n];
    }
    // Diffuse tail: decaying Gaussian noise, dulled as the reflections are.
    const int start = static_cast<int>(9e-3 * kU87Rate);
    const double t60 = 0.12;
    for (int n = start; n < kTakeLength; ++n) {
        const double gauss = gaussian(random);
        const double t = (n - start) / kU87Rate;
        room.diffuse[n] = gauss * std::pow(10.0, -3.0 * t / t60);
    }
    runCascade({highPass(300.0, 0.7), lowPass1(2500.0)}, room.diffuse);
    return room;
}

// speaker * room, with the speaker's strongest sample on the peak index (the recording chain's
// latency).
std::vector<double> place(const std::vector<double>& speaker, const std::vector<double>& room) {
    const int strongest = static_cast<int>(
        std::max_element(speaker.begin(), speaker.end(),
                         [](double a, double b) { return std::fabs(a) < std::fabs(b); }) -
        speaker.begin());
    std::vector<double> h(kU87Length, 0.0);
    const int origin = kPeakIndex - strongest;
    for (int m = 0; m < kTakeLength; ++m) {
        if (room[m] == 0.0) continue;
        const int last = std::min<int>(static_cast<int>(speaker.size()), kTakeLength - origin - m);
        for (int k = 0; k < last; ++k) h[origin + m + k] += room[m] * speaker[k];
    }
    return h;
}

// The response's parts before the capture: early (speaker with the early reflections) and diffuse
// (speaker with the tail at unit level).
struct Parts {
    std::vector<double> early, diffuse;
};

Parts modelParts() {
    std::mt19937_64 random(0x75383721ull);
    const std::vector<double> speaker = speakerResponse();
    const Room room = roomResponse(random);
    return {place(speaker, room.early), place(speaker, room.diffuse)};
}

// The capture, in 16-bit steps, at a level of the diffuse tail and a noise floor after the gate.
std::vector<int16_t> capture(const Parts& parts, double tailLevel, double gatedNoise) {
    std::mt19937_64 random(0x6e6f697365ull);
    std::vector<double> noise(kTakeLength);
    for (int n = 0; n < kTakeLength; ++n) {
        const double sigma = n < kNoiseGate ? 2.3 : gatedNoise;
        noise[n] = std::max(-6.0, std::min(6.0, sigma * gaussian(random)));
    }
    std::vector<double> v(kTakeLength);
    for (int n = 0; n < kTakeLength; ++n) v[n] = parts.early[n] + tailLevel * parts.diffuse[n];
    const double scale = (kPeakSteps - noise[kPeakIndex]) / v[kPeakIndex];
    for (int n = 0; n < kTakeLength; ++n) v[n] = v[n] * scale + noise[n];
    for (int k = 0; k < 8; ++k) v[kPeakIndex - 4 + k] = kPeakSteps8[k];
    for (int n = 0; n < 6; ++n) v[n] = kFirstSteps[n];
    std::vector<int16_t> steps(kU87Length, 0);
    for (int n = 0; n < kTakeLength; ++n) {
        const double r = std::nearbyint(v[n]);
        steps[n] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, r)));
    }
    return steps;
}

double sumOfSquares(const std::vector<int16_t>& steps) {
    double sum = 0;
    for (int16_t s : steps) sum += (s / 32768.0) * (s / 32768.0);
    return sum;
}

int nonZero(const std::vector<int16_t>& steps) {
    return static_cast<int>(std::count_if(steps.begin(), steps.end(), [](int16_t s) { return s != 0; }));
}

// The level of the diffuse tail that gives the response its sum of squares, by bisection (the
// sum grows with the level).
double tuneTailLevel(const Parts& parts) {
    double low = 0.0, high = 0.1;
    for (int i = 0; i < 36; ++i) {
        const double mid = 0.5 * (low + high);
        (sumOfSquares(capture(parts, mid, kGatedNoise)) < kSumOfSquares ? low : high) = mid;
    }
    return 0.5 * (low + high);
}

// The noise floor after the gate that leaves the take with its count of non-zero samples, by
// bisection (more noise, fewer samples rounded to zero).
double tuneGatedNoise(const Parts& parts, double tailLevel) {
    double low = 0.2, high = 1.5;
    for (int i = 0; i < 36; ++i) {
        const double mid = 0.5 * (low + high);
        (nonZero(capture(parts, tailLevel, mid)) < kNonZero ? low : high) = mid;
    }
    return high;
}

}  // namespace

std::vector<int16_t> synthesiseU87(bool check) {
    const Parts parts = modelParts();
    const double level = tuneTailLevel(parts);
    const std::vector<int16_t> steps = capture(parts, level, tuneGatedNoise(parts, level));
    if (!check) return steps;
    if (steps[kTakeLength - 1] == 0) throw std::runtime_error("u87: the take must end on a non-zero sample");
    for (int n = 0; n < kU87Length; ++n)
        if (n != kPeakIndex && std::abs(static_cast<int>(steps[n])) >= kPeakSteps)
            throw std::runtime_error("u87: the peak must stand alone at index 973");
    if (nonZero(steps) != kNonZero) throw std::runtime_error("u87: the take must have 12455 non-zero samples");
    if (std::fabs(sumOfSquares(steps) / kSumOfSquares - 1.0) > 1e-4)
        throw std::runtime_error("u87: the sum of squares must be 4.87106");
    return steps;
}

std::vector<double> u87ModelResponse() {
    const Parts parts = modelParts();
    const double level = tuneTailLevel(parts);
    std::vector<double> h(kU87Length, 0.0);
    for (int n = 0; n < kU87Length; ++n) h[n] = parts.early[n] + level * parts.diffuse[n];
    return h;
}

}  // namespace ampdata_gen
