#include "tools/orm-render/Options.h"

#include <cmath>
#include <cstring>

#include <cstdlib>

namespace orm_render {

namespace {

double number(const std::string& option, const std::string& text) {
    // The tool never sets a locale, so strtod reads the "C" form.
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value))
        throw UsageError{option + " needs a number, got '" + text + "'"};
    return value;
}

}  // namespace

const char* usageText() {
    return "usage: orm-render [--plugin MODULE | --system FILE.xml] (--in FILE | --signal NAME) --out FILE\n"
           "                  [--rate HZ] [--block N] [--seconds S] [--set NAME=VALUE]... [--bench]\n"
           "       orm-render --check FILE.xml\n"
           "signals: riff, sine:FREQ[:DBFS], impulse, sweep, noise, silence\n";
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError{option + " needs a value"};
            return argv[++i];
        };
        if (option == "--plugin") options.plugin = value();
        else if (option == "--system") options.system = value();
        else if (option == "--in") options.input = value();
        else if (option == "--signal") options.signal = value();
        else if (option == "--out") options.output = value();
        else if (option == "--rate") options.rate = number(option, value());
        else if (option == "--block") options.block = static_cast<int>(number(option, value()));
        else if (option == "--seconds") options.seconds = number(option, value());
        else if (option == "--bench") options.bench = true;
        else if (option == "--check") options.check = value();
        else if (option == "--set") {
            std::string setting = value();
            size_t equals = setting.find('=');
            if (equals == std::string::npos || equals == 0)
                throw UsageError{"--set needs NAME=VALUE, got '" + setting + "'"};
            options.settings.emplace_back(setting.substr(0, equals), number("--set " + setting.substr(0, equals),
                                                                            setting.substr(equals + 1)));
        } else if (option == "--help" || option == "-h") {
            throw UsageError{""};
        } else {
            throw UsageError{"unknown option " + option};
        }
    }
    if (!options.check.empty()) {
        if (argc != 3) throw UsageError{"--check FILE.xml takes no other option"};
        return options;
    }
    if (!options.plugin.empty() && !options.system.empty()) throw UsageError{"--plugin and --system exclude each other"};
    if (options.input.empty() == options.signal.empty()) throw UsageError{"give one of --in FILE or --signal NAME"};
    if (options.output.empty()) throw UsageError{"--out FILE is required"};
    if (options.rate < 0 || (options.rate > 0 && options.rate < 1000) || options.rate > 1536000)
        throw UsageError{"--rate must be between 1000 and 1536000 Hz"};
    if (options.block < 1 || options.block > 65536) throw UsageError{"--block must be between 1 and 65536"};
    if (options.seconds < 0 || options.seconds > 3600) throw UsageError{"--seconds must be between 0 and 3600"};
    return options;
}

}  // namespace orm_render
