#include "tools/orm-render/Signals.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/orm-render/Options.h"

namespace orm_render {

namespace {

const double kPi = 3.14159265358979323846;
const double kBeat = 0.5, kBar = 8 * kBeat;  // 120 bpm, two bars of four

// A small fixed-seed generator, so that noise and the riff are the same on every machine.
double uniform(uint32_t& state) {  // in [-1, 1)
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state / 2147483648.0 - 1.0;
}

double dbToGain(double db) { return std::pow(10.0, db / 20.0); }

struct Note {
    double beat, length;
    std::vector<double> frequencies;
};

// A two-bar phrase in E: power chords, then a pentatonic run; repeated to fill.
const std::vector<Note>& phrase() {
    const double e2 = 82.41, a2 = 110.0, b2 = 123.47, d3 = 146.83, e3 = 164.81, g3 = 196.0;
    static const std::vector<Note> notes = {
        {0.0, 0.9, {e2, b2, e3}}, {1.0, 0.45, {e2, b2, e3}}, {1.5, 0.45, {g3 / 2, d3, g3}},
        {2.0, 0.9, {a2, e3, a2 * 2}}, {3.0, 0.9, {g3 / 2, d3, g3}},
        {4.0, 0.25, {e3}}, {4.5, 0.25, {g3}}, {5.0, 0.25, {a2 * 2}}, {5.5, 0.25, {b2 * 2}},
        {6.0, 0.45, {d3 * 2}}, {6.5, 0.45, {b2 * 2}}, {7.0, 0.9, {e2, b2, e3}},
    };
    return notes;
}

}  // namespace

SignalGenerator::SignalGenerator(const std::string& name, double signalRate, uint64_t frames)
    : rate(signalRate), total(frames) {
    if (name == "riff") kind = Riff;
    else if (name == "silence") kind = Silence;
    else if (name == "impulse") kind = Impulse;
    else if (name == "noise") kind = Noise;
    else if (name == "sweep") kind = Sweep;
    else if (name.compare(0, 5, "sine:") == 0) {
        kind = Sine;
        const std::string rest = name.substr(5);
        const size_t colon = rest.find(':');
        const std::string frequencyText = rest.substr(0, colon);
        char* end = nullptr;
        frequency = std::strtod(frequencyText.c_str(), &end);
        if (frequencyText.empty() || *end != '\0' || !(frequency > 0) || frequency >= rate / 2)
            throw UsageError{"sine needs a frequency between 0 and half the rate: '" + name + "'"};
        double level = -6.0;
        if (colon != std::string::npos) {
            const std::string levelText = rest.substr(colon + 1);
            level = std::strtod(levelText.c_str(), &end);
            if (levelText.empty() || *end != '\0' || !std::isfinite(level))
                throw UsageError{"sine needs a level in dBFS: '" + name + "'"};
        }
        amplitude = dbToGain(level);
    } else {
        throw UsageError{"unknown signal '" + name + "' (riff, sine:FREQ[:DBFS], impulse, sweep, noise, silence)"};
    }
}

void SignalGenerator::renderBar() {
    // A plucked string (Karplus-Strong): a noise burst circulating in a damped delay line.
    const double offset = nextBar;
    nextBar += kBar;
    for (const Note& note : phrase())
        for (size_t k = 0; k < note.frequencies.size(); ++k) {
            const double start = offset + note.beat * kBeat + 0.012 * k, frequency = note.frequencies[k];
            const double level = 0.5 / note.frequencies.size();
            const uint64_t begin = static_cast<uint64_t>(start * rate);
            const uint64_t count = static_cast<uint64_t>((note.length * kBeat + 0.1) * rate);
            const size_t period = static_cast<size_t>(rate / frequency + 0.5);
            if (period < 2) continue;
            std::vector<double> line(period);
            for (double& sample : line) sample = uniform(riffState);
            const uint64_t end = std::min(total, begin + count);
            if (end > windowStart + window.size()) window.resize(static_cast<size_t>(end - windowStart), 0.0f);
            double previous = 0;
            for (uint64_t i = 0; i < count && begin + i < total; ++i) {
                double current = line[i % period];
                double averaged = 0.996 * 0.5 * (current + previous);
                previous = current;
                line[i % period] = averaged;
                double fade = i + 256 > count ? static_cast<double>(count - i) / 256.0 : 1.0;  // a player's mute, not a click
                window[static_cast<size_t>(begin + i - windowStart)] += static_cast<float>(level * current * fade);
            }
        }
}

size_t SignalGenerator::generate(float* out, size_t n) {
    const size_t count = static_cast<size_t>(std::min<uint64_t>(n, total - position));
    switch (kind) {
        case Riff: {
            // A bar starting at or before sample `last + 1` may still add to the samples handed out.
            const uint64_t last = position + count;
            const double seconds = static_cast<double>(total) / rate;
            while (nextBar < seconds && nextBar * rate <= static_cast<double>(last + 1)) renderBar();
            if (last > windowStart + window.size()) window.resize(static_cast<size_t>(last - windowStart), 0.0f);
            std::copy_n(window.begin() + static_cast<long>(position - windowStart), count, out);
            // Drop what has been handed out once it is half the window.
            const size_t used = static_cast<size_t>(last - windowStart);
            if (used > 0 && used >= window.size() / 2) {
                window.erase(window.begin(), window.begin() + static_cast<long>(used));
                windowStart = last;
            }
            break;
        }
        case Silence:
            std::fill(out, out + count, 0.0f);
            break;
        case Impulse:
            for (size_t i = 0; i < count; ++i) out[i] = position + i == 0 ? 1.0f : 0.0f;
            break;
        case Noise:
            for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(0.25 * uniform(noiseState));
            break;
        case Sweep: {
            // Exponential sweep 20 Hz to 20 kHz (or to 0.45 of the rate) at -12 dBFS.
            const double f1 = 20.0, f2 = std::min(20000.0, 0.45 * rate), seconds = static_cast<double>(total) / rate;
            const double k = std::log(f2 / f1);
            for (size_t i = 0; i < count; ++i) {
                const double t = static_cast<double>(position + i) / rate;
                out[i] = static_cast<float>(dbToGain(-12) * std::sin(2 * kPi * f1 * seconds / k * (std::exp(t / seconds * k) - 1)));
            }
            break;
        }
        case Sine:
            for (size_t i = 0; i < count; ++i)
                out[i] = static_cast<float>(amplitude * std::sin(2 * kPi * frequency * static_cast<double>(position + i) / rate));
            break;
    }
    position += count;
    return count;
}

std::vector<float> makeSignal(const std::string& name, double rate, size_t frames) {
    SignalGenerator generator(name, rate, frames);
    std::vector<float> out(frames);
    size_t done = 0;
    while (done < frames) done += generator.generate(out.data() + done, frames - done);
    return out;
}

}  // namespace orm_render
