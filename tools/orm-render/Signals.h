#pragma once
// Deterministic test signals: the same arguments always give the same samples.

#include <string>
#include <vector>

namespace orm_render {

// riff (a synthetic guitar phrase), sine:FREQ[:DBFS], impulse, sweep, noise, silence.
// Throws UsageError for an unknown name or bad arguments.
std::vector<float> makeSignal(const std::string& name, double rate, size_t frames);

}  // namespace orm_render
