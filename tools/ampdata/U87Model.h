#pragma once
// The cabinet response "u87": a guitar speaker in a closed cabinet, recorded close up by a
// microphone in a small room, captured as 16-bit audio at 44100 Hz.

#include <cstdint>
#include <vector>

namespace ampdata_gen {

constexpr double kU87Rate = 44100.0;
constexpr int kU87Length = 27776;

// The response in 16-bit steps (a step is 1/32768), kU87Length samples.
// With check, a response that misses the fixed properties (peak, end of take) is an exception.
std::vector<int16_t> synthesiseU87(bool check = true);

// The noise-free model response before scaling and quantisation (for plots and checks).
std::vector<double> u87ModelResponse();

}  // namespace ampdata_gen
