// Windows: the shell opens the page in the default browser and returns at once.
#ifdef _WIN32

#include <windows.h>
#include <shellapi.h>

#include "plugin/gui/OpenUrl.h"

namespace {

std::function<void(const std::string&)>& replacement() {
    static std::function<void(const std::string&)> opener;
    return opener;
}

}  // namespace

void openUrl(const std::string& url) {
    if (replacement()) {
        replacement()(url);
        return;
    }
    ShellExecuteA(nullptr, "open", url.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

// The shell leaves nothing to collect.
void collectUrlOpeners() {}

void setUrlOpener(std::function<void(const std::string&)> opener) { replacement() = std::move(opener); }

#endif
