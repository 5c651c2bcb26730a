#pragma once
// For tests that need a real X server: a private Xvfb with XTest, screenshots of a window, their
// comparison, and the process's thread count.  Header only; the suite links X11, XTest and cairo.

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <cairo.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace xtest {

// Starts Xvfb on a display number of its own, so that parallel runs and a developer's X stay
// apart, connects, and points DISPLAY at it.  display is null when no server with XTest could
// be started; the tests then skip.
struct PrivateServer {
    pid_t pid = 0;
    Display* display = nullptr;

    void start() {
        namespace fs = std::filesystem;
        int number = 0;
        for (number = 50 + getpid() % 200; number < 400; ++number)
            if (!fs::exists("/tmp/.X" + std::to_string(number) + "-lock") &&
                !fs::exists("/tmp/.X11-unix/X" + std::to_string(number)))
                break;
        std::string name = ":" + std::to_string(number);
        std::vector<std::string> arguments = {"Xvfb", name, "-screen", "0", "1100x500x24", "-nolisten", "tcp"};
        std::vector<char*> argv;
        for (auto& a : arguments) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        if (posix_spawnp(&pid, "Xvfb", &actions, nullptr, argv.data(), environ) != 0) pid = 0;
        posix_spawn_file_actions_destroy(&actions);
        if (!pid) return;
        // The server needs a moment to listen; give up after about ten seconds.
        for (int attempt = 0; attempt < 200 && !display; ++attempt) {
            int status;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = 0;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            display = XOpenDisplay(name.c_str());
        }
        int event, error, major, minor;
        if (display && !XTestQueryExtension(display, &event, &error, &major, &minor)) {
            XCloseDisplay(display);
            display = nullptr;
        }
        if (display) setenv("DISPLAY", name.c_str(), 1);
    }

    void stop() {
        if (display) XCloseDisplay(display);
        display = nullptr;
        if (pid) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
        pid = 0;
    }
};

// Pixels of a window, 0x00RRGGBB.
struct Screenshot {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;
    uint32_t at(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
};

inline Screenshot grab(Display* display, Window window, int width, int height) {
    XSync(display, False);
    XImage* image = XGetImage(display, window, 0, 0, unsigned(width), unsigned(height), AllPlanes, ZPixmap);
    Screenshot shot;
    shot.width = width;
    shot.height = height;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) shot.pixels.push_back(uint32_t(XGetPixel(image, x, y)) & 0xffffff);
    XDestroyImage(image);
    return shot;
}

// How many pixels differ, and the box around them (right and bottom exclusive).
struct Difference {
    int count = 0;
    struct {
        int left = 0, top = 0, right = 0, bottom = 0;
    } box;
};

inline Difference compare(const Screenshot& a, const Screenshot& b) {
    Difference d;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            if (a.at(x, y) != b.at(x, y)) {
                if (d.count == 0) {
                    d.box.left = x;
                    d.box.top = y;
                    d.box.right = x + 1;
                    d.box.bottom = y + 1;
                } else {
                    d.box.left = std::min(d.box.left, x);
                    d.box.right = std::max(d.box.right, x + 1);
                    d.box.bottom = y + 1;
                }
                ++d.count;
            }
    return d;
}

inline int threadCount() {
    int count = 0;
    for (auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        (void)entry;
        ++count;
    }
    return count;
}

}  // namespace xtest
