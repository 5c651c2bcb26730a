#pragma once
// Magnitude responses of sampled impulse responses, for plots and checks.

#include <cstddef>
#include <vector>

namespace ampdata_gen {

// |H(f)| in dB of h[0..length) at the given frequencies (direct DFT, double precision).
std::vector<double> magnitudeDb(const std::vector<double>& h, double rate, const std::vector<double>& frequencies,
                                size_t length);
// Averages power over a band of the given width in octaves around each frequency.
std::vector<double> smoothedDb(const std::vector<double>& h, double rate, const std::vector<double>& frequencies,
                               size_t length, double octaves);
// count frequencies spaced evenly on a log scale from low to high.
std::vector<double> logFrequencies(double low, double high, int count);

}  // namespace ampdata_gen
