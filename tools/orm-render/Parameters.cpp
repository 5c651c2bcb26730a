#include "tools/orm-render/Parameters.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tools/orm-render/Options.h"

namespace orm_render {

namespace {

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// A number in the "C" form (the tool never sets a locale); false if TEXT is not one.
bool number(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(value);
}

std::string format(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%g", value);
    return text;
}

std::string title(const Parameter& parameter) {
    return parameter.longName.empty() ? parameter.name : parameter.longName;
}

}  // namespace

std::string rangeText(const Parameter& parameter) {
    switch (parameter.kind) {
        case Parameter::Switch: {
            std::string text;
            for (const std::string& position : parameter.positions) text += (text.empty() ? "" : " | ") + position;
            return text;
        }
        case Parameter::Knob:
            return "0/10 to 10/10";
        default:
            return parameter.unbounded ? "any number" : "0 to 1";
    }
}

std::string valueText(const Parameter& parameter, double value) {
    if (parameter.kind == Parameter::Switch && parameter.positions.size() > 1) {
        const double steps = static_cast<double>(parameter.positions.size() - 1);
        const size_t position = static_cast<size_t>(std::lround(std::clamp(value, 0.0, 1.0) * steps));
        return parameter.positions[position];
    }
    if (parameter.kind == Parameter::Knob) return format(std::round(value * 1000) / 100) + "/10";
    return format(value);
}

std::pair<size_t, double> resolveSetting(const std::vector<Parameter>& parameters, const std::string& name,
                                         const std::string& text) {
    const std::string wanted = lower(name);
    size_t found = parameters.size();
    for (size_t i = 0; i < parameters.size() && found == parameters.size(); ++i) {
        const std::string host = lower(parameters[i].name);
        if (host == wanted || lower(parameters[i].longName) == wanted ||
            (host.size() == 8 && wanted.compare(0, 8, host) == 0))
            found = i;
    }
    if (found == parameters.size()) {
        char* end = nullptr;
        errno = 0;
        const long index = std::strtol(name.c_str(), &end, 10);
        if (!name.empty() && *end == '\0' && errno == 0 && index >= 0 && static_cast<size_t>(index) < parameters.size())
            found = static_cast<size_t>(index);
    }
    if (found == parameters.size()) {
        std::string known;
        for (size_t i = 0; i < parameters.size(); ++i)
            known += (i ? ", " : "") + std::to_string(i) + " " + title(parameters[i]);
        throw UsageError{"unknown parameter " + name + " (parameters: " + (known.empty() ? "none" : known) +
                         "; --list describes them)"};
    }

    const Parameter& parameter = parameters[found];
    const std::string takes = title(parameter) + " takes " + rangeText(parameter) +
                              (parameter.kind == Parameter::Plain ? "" : ", or a host value 0 to 1");
    double value = 0;
    if (parameter.kind == Parameter::Switch) {
        for (size_t i = 0; i < parameter.positions.size(); ++i)
            if (lower(parameter.positions[i]) == lower(text))
                return {found, parameter.positions.size() > 1 ? static_cast<double>(i) / (parameter.positions.size() - 1) : 0.0};
    }
    const size_t slash = text.find('/');
    if (parameter.kind == Parameter::Knob && slash != std::string::npos && text.substr(slash) == "/10") {
        if (!number(text.substr(0, slash), value)) throw UsageError{"--set " + name + "=" + text + ": " + takes};
        if (value < 0 || value > 10)
            throw UsageError{"--set " + name + "=" + text + " is out of range: " + takes};
        return {found, value / 10};
    }
    if (!number(text, value)) throw UsageError{"--set " + name + "=" + text + ": " + takes};
    if (!parameter.unbounded && (value < 0 || value > 1))
        throw UsageError{"--set " + name + "=" + text + " is out of range: " + takes};
    return {found, value};
}

std::string listText(const std::vector<Parameter>& parameters) {
    size_t nameWidth = 4, rangeWidth = 5;
    for (const Parameter& parameter : parameters) {
        nameWidth = std::max(nameWidth, parameter.name.size());
        rangeWidth = std::max(rangeWidth, rangeText(parameter).size());
    }
    char line[512];
    std::snprintf(line, sizeof(line), "%-5s  %-*s  %-*s  %-8s  %s\n", "index", static_cast<int>(nameWidth), "name",
                  static_cast<int>(rangeWidth), "range", "default", "what it does");
    std::string text = line;
    for (const Parameter& parameter : parameters) {
        std::snprintf(line, sizeof(line), "%-5d  %-*s  %-*s  %-8s  ", parameter.index, static_cast<int>(nameWidth),
                      parameter.name.c_str(), static_cast<int>(rangeWidth), rangeText(parameter).c_str(),
                      valueText(parameter, parameter.value).c_str());
        text += line + parameter.what + "\n";
    }
    if (parameters.empty()) text += "(no parameters)\n";
    return text;
}

}  // namespace orm_render
