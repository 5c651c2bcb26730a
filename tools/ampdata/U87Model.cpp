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
// 3. Voice-coil inductance and the mass of the cone: above about 5 kHz the output falls steeply,
//    a first-order low pass at 4.5 kHz and a fourth-order Butterworth low pass at 6.2 kHz.
// 4. The microphone, a few centimetres from the dust cap: proximity effect (a first-order low
//    shelf, +1.5 dB below 150 Hz) and its own low-frequency limit (first-order high pass at
//    25 Hz).  The dust cap, nearer to the microphone than the cone, is heard 0.11 ms earlier: a
//    band-limited (1.8 to 4.5 kHz) inverted copy at 0.55 of the cone's level.
// 5. The room: early reflections from the baffle's edges (0.45 ms, inverted), the floor (1.35 ms),
//    the back wall (3.1 ms), a side wall (4.7 ms) and the ceiling (6.9 ms), each attenuated and
//    dulled by a one-pole low pass; then a diffuse tail of Gaussian noise from 9 ms on, decaying
//    with T60 = 0.12 s, band-limited to 300 Hz - 2.5 kHz (the small room's absorbers take the
//    lows).  The speaker's sound is convolved with this room response.
// 6. The capture: the recording chain's latency puts the speaker's strongest sample at index 973
//    (the pulse starts near index 960, 22 ms); the whole is scaled so that this sample is 32766
//    steps; the take's noise floor is added (Gaussian, 2.3 steps RMS and at most 6 before the
//    pulse, 0.59 steps RMS after the capture's noise gate), everything is rounded to 16 bits,
//    and the take ends at index 22614, followed by zero padding up to 27776 samples.
//
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
const int kTakeLength = 22615;  // the last sample of the take is index 22614
const int kNoiseGate = 960;     // the capture's gate opens with the pulse
const int kPeakIndex = 973;
const int kPeakSteps = 32766;

// The speaker and microphone response to an impulse at index 0.
std::vector<double> speakerResponse() {
    std::vector<double> cone(kSpeakerLength, 0.0);
    cone[0] = 1.0;
    runCascade({highPass(82.0, 1.3), peak(1200.0, 2.0, -3.0), peak(1700.0, 3.0, 4.5), peak(2500.0, 3.5, 6.0),
                peak(3400.0, 4.0, 5.0), lowPass1(4500.0), lowPass(6200.0, 0.5412), lowPass(6200.0, 1.3066),
                lowShelf1(150.0, 1.5), highPass1(25.0)},
               cone);
    // The dust cap: small, stiff, nearer to the microphone; it radiates the highs first.
    const int capLead = 5;  // 0.11 ms
    std::vector<double> cap(kSpeakerLength, 0.0);
    cap[0] = 1.0;
    runCascade({highPass(1800.0, 0.7), lowPass(4500.0, 0.7), lowPass(4500.0, 0.7)}, cap);
    std::vector<double> out(kSpeakerLength + capLead, 0.0);
    for (int n = 0; n < kSpeakerLength; ++n) {
        out[n + capLead] += cone[n];
        out[n] -= 0.55 * cap[n];
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

// The room response seen from the microphone: direct sound, early reflections, diffuse tail.
std::vector<double> roomResponse(std::mt19937_64& random) {
    std::vector<double> room(kTakeLength, 0.0);
    room[0] = 1.0;
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
        for (int n = 0; n < kTakeLength; ++n) room[n] += echo[n];
    }
    // Diffuse tail: decaying Gaussian noise, dulled as the reflections are.
    const int start = static_cast<int>(9e-3 * kU87Rate);
    const double t60 = 0.12, level = 0.015;
    std::vector<double> tail(kTakeLength, 0.0);
    for (int n = start; n < kTakeLength; ++n) {
        const double gauss = gaussian(random);
        const double t = (n - start) / kU87Rate;
        tail[n] = level * gauss * std::pow(10.0, -3.0 * t / t60);
    }
    runCascade({highPass(300.0, 0.7), lowPass1(2500.0)}, tail);
    for (int n = 0; n < kTakeLength; ++n) room[n] += tail[n];
    return room;
}

}  // namespace

std::vector<double> u87ModelResponse() {
    std::mt19937_64 random(0x75383721ull);
    const std::vector<double> speaker = speakerResponse();
    const std::vector<double> room = roomResponse(random);
    // The recording chain's latency: the speaker's strongest sample lands on the peak index.
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

std::vector<int16_t> synthesiseU87(bool check) {
    const std::vector<double> h = u87ModelResponse();
    std::mt19937_64 random(0x6e6f697365ull);
    std::vector<double> noise(kTakeLength);
    for (int n = 0; n < kTakeLength; ++n) {
        const double sigma = n < kNoiseGate ? 2.3 : 0.59;
        noise[n] = std::max(-6.0, std::min(6.0, sigma * gaussian(random)));
    }
    const double scale = (kPeakSteps - noise[kPeakIndex]) / h[kPeakIndex];
    std::vector<int16_t> steps(kU87Length, 0);
    for (int n = 0; n < kTakeLength; ++n) {
        const double v = std::nearbyint(h[n] * scale + noise[n]);
        steps[n] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
    }
    if (!check) return steps;
    if (steps[kTakeLength - 1] == 0) throw std::runtime_error("u87: the take must end on a non-zero sample");
    for (int n = 0; n < kU87Length; ++n)
        if (n != kPeakIndex && std::abs(static_cast<int>(steps[n])) >= kPeakSteps)
            throw std::runtime_error("u87: the peak must stand alone at index 973");
    return steps;
}

}  // namespace ampdata_gen
