#include "tools/orm-jack/Settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace orm_jack {

namespace fs = std::filesystem;

namespace {

bool isPort(const std::string& name) {
    return name == "in_1" || name == "in_2" || name == "out_1" || name == "out_2";
}

// The "C" form whatever the locale: the program never sets one, and the file must read back the
// same on any desktop.
bool parseValue(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(value) && value >= 0 && value <= 1;
}

}  // namespace

std::string settingsPath() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    // Relative values are invalid by the base-directory rules and are ignored.
    if (config && config[0] == '/') return std::string(config) + "/orm/orm-jack.conf";
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/') return std::string(home) + "/.config/orm/orm-jack.conf";
    return "";
}

Settings loadSettings(const std::string& path, const std::vector<std::string>& parameterNames, std::string& warning) {
    warning.clear();
    Settings settings;
    if (path.empty()) {
        warning = "no configuration folder (neither XDG_CONFIG_HOME nor HOME is set); starting with defaults";
        return settings;
    }
    std::error_code ignored;
    if (!fs::exists(path, ignored)) {
        warning = "no settings in " + path + " yet; starting with defaults";
        return settings;
    }
    std::ifstream file(path, std::ios::binary);
    std::string problem;
    size_t lineNumber = 0;
    if (!file) problem = "cannot be read";
    // A settings file is a few hundred bytes; anything huge is not ours.
    else if (fs::file_size(path, ignored) > 65536) problem = "is too large";
    for (std::string line; problem.empty() && std::getline(file, line);) {
        ++lineNumber;
        if (line.empty() || line[0] == '#') continue;
        size_t equals = line.find('=');
        std::string key = equals == std::string::npos ? line : line.substr(0, equals);
        std::string value = equals == std::string::npos ? "" : line.substr(equals + 1);
        bool known = false;
        for (const auto& name : parameterNames) known = known || name == key;
        double number = 0;
        if (equals == std::string::npos || equals == 0) {
            problem = "line " + std::to_string(lineNumber) + " is not NAME=VALUE";
        } else if (isPort(key)) {
            if (value.empty() || value.find('\0') != std::string::npos)
                problem = "line " + std::to_string(lineNumber) + " names no port";
            else
                settings.connections.emplace_back(key, value);
        } else if (!known) {
            problem = "line " + std::to_string(lineNumber) + " names no parameter or port: '" + key + "'";
        } else if (!parseValue(value, number)) {
            problem = "line " + std::to_string(lineNumber) + ": " + key + " needs a value in 0..1, got '" + value + "'";
        } else {
            settings.parameters.emplace_back(key, number);
        }
    }
    if (!problem.empty()) {
        // Kept for the user to look at: the next save replaces the file itself.
        fs::copy_file(path, path + ".damaged", fs::copy_options::overwrite_existing, ignored);
        warning = "settings file " + path + " is damaged (" + problem + "); starting with defaults" +
                  (ignored ? std::string() : " (kept as " + path + ".damaged)");
        return Settings{};
    }
    settings.loaded = true;
    return settings;
}

bool saveSettings(const std::string& path, const Settings& settings, std::string& error) {
    if (path.empty()) {
        error = "no configuration folder (neither XDG_CONFIG_HOME nor HOME is set)";
        return false;
    }
    std::error_code failure;
    fs::create_directories(fs::path(path).parent_path(), failure);
    if (failure) {
        error = "cannot make " + fs::path(path).parent_path().string() + ": " + failure.message();
        return false;
    }
    std::string text = "# orm-jack: the controls (0..1) and the port connections, as they were at exit\n";
    char number[64];
    for (const auto& p : settings.parameters) {
        std::snprintf(number, sizeof(number), "%.9g", p.second);
        text += p.first + "=" + number + "\n";
    }
    for (const auto& c : settings.connections) text += c.first + "=" + c.second + "\n";

    const std::string temporary = path + ".tmp-" + std::to_string(getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = "cannot write " + temporary + ": " + std::strerror(errno);
        return false;
    }
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += size_t(n);
    }
    // Synced before the rename, so that a crash leaves the old file or the new one, never half.
    const char* step = written < text.size() ? "write" : ::fsync(fd) != 0 ? "sync" : nullptr;
    const int failed = step ? errno : 0;
    if (::close(fd) != 0 && !step) step = "close";
    if (!step && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    error = "cannot " + std::string(step ? step : "rename") + " " + (step ? temporary : path) + ": " +
            std::strerror(failed ? failed : errno);
    ::unlink(temporary.c_str());
    return false;
}

}  // namespace orm_jack
