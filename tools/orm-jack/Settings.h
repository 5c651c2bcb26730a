#pragma once
// What orm-jack remembers between runs: the controls' values and the ports' connections, in a
// small text file under the user's configuration folder.

#include <string>
#include <utility>
#include <vector>

namespace orm_jack {

struct Settings {
    // By the parameter's name as the host sees it, value 0..1, in file order.
    std::vector<std::pair<std::string, double>> parameters;
    // Our port ("in_1" .. "out_2") and a port of another client it was connected to.
    std::vector<std::pair<std::string, std::string>> connections;
    // False when nothing was read (no file, or a damaged one): the defaults apply.
    bool loaded = false;
};

// $XDG_CONFIG_HOME/orm/orm-jack.conf, or ~/.config/orm/orm-jack.conf; empty when neither is known.
std::string settingsPath();

// Reads the file.  A missing or damaged file gives empty settings and one line in warning (a
// damaged file is kept beside as PATH.damaged); nothing here throws.
Settings loadSettings(const std::string& path, const std::vector<std::string>& parameterNames, std::string& warning);

// Writes atomically (a temporary file in the same folder, synced, then renamed).  Returns false
// and says why in error when the file could not be written; the old file is then untouched.
bool saveSettings(const std::string& path, const Settings& settings, std::string& error);

}  // namespace orm_jack
