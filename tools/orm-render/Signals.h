#pragma once
// Deterministic test signals, made block by block: the same arguments always give the same
// samples, whatever the block sizes, and a long signal takes no more memory than a short one.

#include <cstdint>
#include <string>
#include <vector>

namespace orm_render {

class SignalGenerator {
public:
    // riff (a synthetic guitar phrase), sine:FREQ[:DBFS], impulse, sweep, noise, silence, with
    // `frames` samples in all.  Throws UsageError for an unknown name or bad arguments.
    SignalGenerator(const std::string& name, double rate, uint64_t frames);

    // The next samples, at most n; returns how many (0 at the end).
    size_t generate(float* out, size_t n);
    uint64_t frames() const { return total; }

private:
    enum Kind { Riff, Silence, Impulse, Noise, Sweep, Sine };
    void renderBar();

    Kind kind = Silence;
    double rate;
    uint64_t total;
    uint64_t position = 0;
    double frequency = 0, amplitude = 0;
    uint32_t noiseState = 12345;
    // The riff: notes ring past their bar, so samples wait in a window until no later bar can
    // reach them.  window[i] is sample windowStart + i.
    uint32_t riffState = 20261122;
    double nextBar = 0;
    std::vector<float> window;
    uint64_t windowStart = 0;
};

// All of a signal at once, for a caller that wants it whole.
std::vector<float> makeSignal(const std::string& name, double rate, size_t frames);

}  // namespace orm_render
