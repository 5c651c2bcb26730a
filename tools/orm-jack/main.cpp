// orm-jack: the built-in amplifier as a JACK application, with its panel as the window.  The
// module is hosted through its VST2 interface exactly as orm-render hosts it.

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tools/orm-jack/EditorWindow.h"
#include "tools/orm-jack/JackAmp.h"
#include "tools/orm-jack/Settings.h"
#include "tools/orm-render/VstHost.h"

using namespace orm_jack;

namespace {

const char* const kUsage =
    "usage: orm-jack [--in PORT[,PORT]] [--out PORT[,PORT]] [--no-gui] [--set NAME=VALUE]... [--plugin MODULE]\n"
    "  --in     ports feeding in_1 and in_2 (one port feeds both; 'none' leaves them unconnected);\n"
    "           default: the remembered connections, else the first physical capture port\n"
    "  --out    ports fed by out_1 and out_2 ('none' leaves them unconnected);\n"
    "           default: the remembered connections, else the first two physical playback ports\n"
    "  --no-gui play without the window; Ctrl-C ends\n"
    "  --set    a parameter by name or index, value 0..1, over the remembered value\n";

struct UsageError {
    std::string message;
};

struct Options {
    std::string plugin;
    bool inGiven = false, outGiven = false;
    std::vector<std::string> in, out;
    bool gui = true;
    std::vector<std::pair<std::string, double>> settings;
};

std::vector<std::string> portList(const std::string& option, const std::string& text) {
    std::vector<std::string> ports;
    if (text == "none") return ports;
    size_t start = 0;
    while (true) {
        size_t comma = text.find(',', start);
        std::string name = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (name.empty()) throw UsageError{option + " needs port names separated by commas, got '" + text + "'"};
        ports.push_back(name);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (ports.size() > 2) throw UsageError{option + " takes at most two ports, got '" + text + "'"};
    return ports;
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError{option + " needs a value"};
            return argv[++i];
        };
        if (option == "--in") {
            options.in = portList(option, value());
            options.inGiven = true;
        } else if (option == "--out") {
            options.out = portList(option, value());
            options.outGiven = true;
        } else if (option == "--no-gui") {
            options.gui = false;
        } else if (option == "--plugin") {
            options.plugin = value();
        } else if (option == "--set") {
            std::string setting = value();
            size_t equals = setting.find('=');
            if (equals == std::string::npos || equals == 0)
                throw UsageError{"--set needs NAME=VALUE, got '" + setting + "'"};
            // The program never sets a locale, so strtod reads the "C" form.
            std::string text = setting.substr(equals + 1);
            char* end = nullptr;
            double number = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !std::isfinite(number))
                throw UsageError{"--set " + setting.substr(0, equals) + " needs a number, got '" + text + "'"};
            options.settings.emplace_back(setting.substr(0, equals), number);
        } else if (option == "--help" || option == "-h") {
            throw UsageError{""};
        } else {
            throw UsageError{"unknown option " + option};
        }
    }
    return options;
}

// Beside this program (the build tree), else where `cmake --install` puts the module.
std::string defaultModule() {
    std::string beside = orm_render::VstHost::defaultModulePath();
    if (access(beside.c_str(), R_OK) == 0) return beside;
    std::string installed = beside.substr(0, beside.find_last_of('/') + 1) + "../lib/vst/orm.so";
    return access(installed.c_str(), R_OK) == 0 ? installed : beside;
}

volatile std::sig_atomic_t interrupted = 0;
void onSignal(int) { interrupted = 1; }

void warn(const std::string& message) { std::fprintf(stderr, "orm-jack: %s\n", message.c_str()); }


int run(const Options& options) {
    orm_render::VstHost host(options.plugin.empty() ? defaultModule() : options.plugin);
    const std::vector<std::string>& names = host.parameterNames();

    // Remembered values first, the command line over them, all before the first block.
    const std::string path = settingsPath();
    std::string warning;
    Settings remembered = loadSettings(path, names, warning);
    if (!warning.empty()) warn(warning);
    for (const auto& p : remembered.parameters) host.set(p.first, p.second);
    for (const auto& s : options.settings) host.set(s.first, s.second);

    JackAmp amp(host, "orm");
    std::unique_ptr<EditorWindow> window;
    if (options.gui) window = std::make_unique<EditorWindow>(host.record(), amp.dispatchLock());
    amp.activate();

    // Connections: the command line, else what was remembered, else the physical ports.
    std::vector<std::pair<std::string, std::string>> wanted;
    auto add = [&](bool input, const std::vector<std::string>& ports) {
        const char* first = input ? "in_1" : "out_1";
        const char* second = input ? "in_2" : "out_2";
        for (size_t i = 0; i < ports.size(); ++i) wanted.emplace_back(i == 0 ? first : second, ports[i]);
        if (input && ports.size() == 1) wanted.emplace_back(second, ports[0]);
    };
    for (bool input : {true, false}) {
        const bool given = input ? options.inGiven : options.outGiven;
        if (given) {
            add(input, input ? options.in : options.out);
        } else if (remembered.loaded) {
            for (const auto& c : remembered.connections)
                if ((c.first.rfind("in_", 0) == 0) == input) wanted.push_back(c);
        } else {
            add(input, amp.physicalPorts(input));
        }
    }
    std::string error;
    for (const auto& c : wanted)
        if (!amp.connect(c.first, c.second, error)) warn(error);
    std::printf("orm-jack: playing at %.0f Hz, %u frames per period%s\n", amp.rate(), unsigned(amp.bufferSize()),
                options.gui ? "; close the window to end" : "; Ctrl-C ends");
    std::fflush(stdout);

    auto stop = [&] { return interrupted != 0 || amp.serverGone(); };
    if (window) {
        window->run(stop);
    } else {
        while (!stop()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (amp.serverGone()) warn("the JACK server has gone away");

    // What to remember, read while everything is still up.
    Settings now;
    now.connections = amp.serverGone() ? (remembered.loaded ? remembered.connections : wanted) : amp.connections();
    AEffect* effect = host.record();
    for (size_t i = 0; i < names.size(); ++i)
        now.parameters.emplace_back(names[i], double(effect->getParameter(effect, int32_t(i))));
    amp.close();
    window.reset();
    host.stop();
    if (!saveSettings(path, now, error)) warn("settings not saved: " + error);
    std::printf("orm-jack: %ld xruns\n", amp.xruns());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    try {
        return run(parseOptions(argc, argv));
    } catch (const UsageError& error) {
        if (!error.message.empty()) warn(error.message);
        std::fputs(kUsage, stderr);
        return error.message.empty() ? 0 : 2;
    } catch (const std::exception& error) {
        warn(error.what());
    }
    return 1;
}
