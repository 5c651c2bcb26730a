#pragma once
#include <string>

namespace ampdata_gen {
// Draws the magnitude response of "u87" (raw and 1/6-octave smoothed) into a PNG file.
bool plotU87(const std::string& path);
}  // namespace ampdata_gen
