#include "tools/orm-render/Signals.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "tools/orm-render/Options.h"

namespace orm_render {

namespace {

const double kPi = 3.14159265358979323846;

// A small fixed-seed generator, so that noise and the riff are the same on every machine.
class Random {
public:
    explicit Random(uint32_t seed) : state(seed) {}
    double uniform() {  // in [-1, 1)
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state / 2147483648.0 - 1.0;
    }

private:
    uint32_t state;
};

double dbToGain(double db) { return std::pow(10.0, db / 20.0); }

// A plucked string (Karplus-Strong): a noise burst circulating in a damped delay line.
void pluck(std::vector<float>& out, double rate, double start, double frequency, double length, double level,
           Random& random) {
    size_t begin = static_cast<size_t>(start * rate);
    size_t count = static_cast<size_t>(length * rate);
    size_t period = static_cast<size_t>(rate / frequency + 0.5);
    if (period < 2) return;
    std::vector<double> line(period);
    for (double& sample : line) sample = random.uniform();
    double previous = 0;
    for (size_t i = 0; i < count && begin + i < out.size(); ++i) {
        double current = line[i % period];
        double averaged = 0.996 * 0.5 * (current + previous);
        previous = current;
        line[i % period] = averaged;
        double fade = i + 256 > count ? (count - i) / 256.0 : 1.0;  // a player's mute, not a click
        out[begin + i] += static_cast<float>(level * current * fade);
    }
}

std::vector<float> riff(double rate, size_t frames) {
    // A two-bar phrase at 120 bpm in E: power chords, then a pentatonic run; repeated to fill.
    struct Note {
        double beat, length;
        std::vector<double> frequencies;
    };
    const double e2 = 82.41, a2 = 110.0, b2 = 123.47, d3 = 146.83, e3 = 164.81, g3 = 196.0;
    const std::vector<Note> phrase = {
        {0.0, 0.9, {e2, b2, e3}}, {1.0, 0.45, {e2, b2, e3}}, {1.5, 0.45, {g3 / 2, d3, g3}},
        {2.0, 0.9, {a2, e3, a2 * 2}}, {3.0, 0.9, {g3 / 2, d3, g3}},
        {4.0, 0.25, {e3}}, {4.5, 0.25, {g3}}, {5.0, 0.25, {a2 * 2}}, {5.5, 0.25, {b2 * 2}},
        {6.0, 0.45, {d3 * 2}}, {6.5, 0.45, {b2 * 2}}, {7.0, 0.9, {e2, b2, e3}},
    };
    const double beat = 0.5, bar = 8 * beat;
    std::vector<float> out(frames, 0.0f);
    Random random(20261122);
    const double seconds = frames / rate;
    for (double offset = 0; offset < seconds; offset += bar)
        for (const Note& note : phrase)
            for (size_t k = 0; k < note.frequencies.size(); ++k)
                pluck(out, rate, offset + note.beat * beat + 0.012 * k, note.frequencies[k], note.length * beat + 0.1,
                      0.5 / note.frequencies.size(), random);
    return out;
}

}  // namespace

std::vector<float> makeSignal(const std::string& name, double rate, size_t frames) {
    std::vector<float> out(frames, 0.0f);
    if (name == "riff") return riff(rate, frames);
    if (name == "silence") return out;
    if (name == "impulse") {
        if (frames > 0) out[0] = 1.0f;
        return out;
    }
    if (name == "noise") {
        Random random(12345);
        for (float& sample : out) sample = static_cast<float>(0.25 * random.uniform());
        return out;
    }
    if (name == "sweep") {
        // Exponential sweep 20 Hz to 20 kHz (or to 0.45 of the rate) at -12 dBFS.
        double f1 = 20.0, f2 = std::min(20000.0, 0.45 * rate), seconds = frames / rate;
        double k = std::log(f2 / f1);
        for (size_t i = 0; i < frames; ++i) {
            double t = i / rate;
            out[i] = static_cast<float>(dbToGain(-12) * std::sin(2 * kPi * f1 * seconds / k * (std::exp(t / seconds * k) - 1)));
        }
        return out;
    }
    if (name.compare(0, 5, "sine:") == 0) {
        std::string rest = name.substr(5);
        size_t colon = rest.find(':');
        char* end = nullptr;
        const std::string frequencyText = rest.substr(0, colon);  // end points into it: keep it alive
        double frequency = std::strtod(frequencyText.c_str(), &end);
        if (*end != '\0' || !(frequency > 0) || frequency >= rate / 2)
            throw UsageError{"sine needs a frequency between 0 and half the rate: '" + name + "'"};
        double level = -6.0;
        if (colon != std::string::npos) {
            const std::string levelText = rest.substr(colon + 1);
            level = std::strtod(levelText.c_str(), &end);
            if (*end != '\0' || rest.size() == colon + 1 || !std::isfinite(level))
                throw UsageError{"sine needs a level in dBFS: '" + name + "'"};
        }
        double amplitude = dbToGain(level);
        for (size_t i = 0; i < frames; ++i) out[i] = static_cast<float>(amplitude * std::sin(2 * kPi * frequency * i / rate));
        return out;
    }
    throw UsageError{"unknown signal '" + name + "' (riff, sine:FREQ[:DBFS], impulse, sweep, noise, silence)"};
}

}  // namespace orm_render
