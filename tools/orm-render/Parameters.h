#pragma once
// --set and --list: finding a parameter by name or index, reading a value as the panel shows it
// (Oversampling=8x, Cabinet=on, Volume=7.5/10) or as a host value 0..1, and describing them all.

#include <string>
#include <utility>
#include <vector>

#include "tools/orm-render/Renderer.h"

namespace orm_render {

// The parameter NAME names (host name, full name, a longer name matching the host's first eight
// letters, case aside, or an index), and the host value TEXT gives it.  Throws UsageError naming
// the parameter and what it takes.
std::pair<size_t, double> resolveSetting(const std::vector<Parameter>& parameters, const std::string& name,
                                         const std::string& text);

// "2x | 4x | 8x", "0/10 to 10/10", "0 to 1"; and the default the same way.
std::string rangeText(const Parameter& parameter);
std::string valueText(const Parameter& parameter, double value);

// The table --list prints: index, name, range, default, what it does.
std::string listText(const std::vector<Parameter>& parameters);

}  // namespace orm_render
