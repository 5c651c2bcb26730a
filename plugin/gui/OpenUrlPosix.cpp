// Linux: the desktop's own opener, xdg-open, found on the PATH and started directly.

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <vector>

#include "plugin/gui/OpenUrl.h"

extern char** environ;

namespace {

std::vector<pid_t>& runningOpeners() {
    static std::vector<pid_t> pids;
    return pids;
}

std::function<void(const std::string&)>& replacement() {
    static std::function<void(const std::string&)> opener;
    return opener;
}

}  // namespace

void collectUrlOpeners() {
    auto& pids = runningOpeners();
    pids.erase(std::remove_if(pids.begin(), pids.end(),
                              [](pid_t pid) {
                                  int status;
                                  return waitpid(pid, &status, WNOHANG) != 0;
                              }),
               pids.end());
}

void openUrl(const std::string& url) {
    if (replacement()) {
        replacement()(url);
        return;
    }
    collectUrlOpeners();
    std::string program = "xdg-open";
    std::string argument = url;
    char* argv[] = {&program[0], &argument[0], nullptr};
    pid_t pid;
    if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, argv, environ) == 0) runningOpeners().push_back(pid);
}

void setUrlOpener(std::function<void(const std::string&)> opener) { replacement() = std::move(opener); }
