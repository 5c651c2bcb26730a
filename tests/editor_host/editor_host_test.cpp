// The editor as a host meets it: the module loaded with dlopen and driven only through its record
// and dispatcher, its window opened in a window of the host's on a private Xvfb server, the mouse
// moved by XTest, and the host callback recording what the plug-in reports.  The window tests skip
// when no X server can be started.

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "editor/PanelComposition.h"
#include "plugin/PluginHost.h"
#include "support/XServer.h"

namespace {

using testhost::Instance;
using xtest::compare;
using xtest::Screenshot;
using xtest::threadCount;

struct HostEvent {
    int32_t opcode;
    int32_t index;
    float value;
};
// Filled on the test's thread: the editor runs in the dispatcher's calls.
std::vector<HostEvent> events;

intptr_t recordingHost(AEffect*, int32_t opcode, int32_t index, intptr_t, void*, float opt) {
    if (opcode == audioMasterVersion) return 2400;
    if (opcode == audioMasterAutomate || opcode == audioMasterBeginEdit || opcode == audioMasterEndEdit)
        events.push_back({opcode, index, opt});
    return 0;
}

std::vector<HostEvent> automations() {
    std::vector<HostEvent> result;
    for (auto& e : events)
        if (e.opcode == audioMasterAutomate) result.push_back(e);
    return result;
}

TEST(EditorRecord, SizeAndFlagBeforeAnyWindow) {
    Instance plugin(recordingHost);
    EXPECT_TRUE(plugin.effect->flags & effFlagsHasEditor);
    ERect* rect = nullptr;
    ASSERT_EQ(plugin.dispatch(effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(rect->left, 0);
    EXPECT_EQ(rect->top, 0);
    EXPECT_EQ(rect->right, 1000);
    EXPECT_EQ(rect->bottom, 400);
    // Closed: parameters and idle calls pass without a window, and nothing is reported back.
    events.clear();
    plugin.setParameter(0, 0.3f);
    plugin.dispatch(effEditIdle);
    plugin.dispatch(effEditClose);
    EXPECT_FLOAT_EQ(plugin.getParameter(0), 0.3f);
    EXPECT_TRUE(events.empty());
}

xtest::PrivateServer server;

// How long the editor's idle calls take, over every call the tests make; reported, not asserted.
// The first call after an open draws the whole panel and is counted apart.
struct IdleTimes {
    long calls = 0;
    double total = 0, worst = 0;  // milliseconds
    void add(double ms) {
        ++calls;
        total += ms;
        worst = std::max(worst, ms);
    }
    void print(const char* what) const {
        if (calls)
            std::printf("editor idle, %s: %ld calls, mean %.3f ms, worst %.3f ms\n", what, calls,
                        total / double(calls), worst);
    }
} firstIdles, laterIdles;
bool justOpened = false;

class EditorHost : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server.start(); }
    static void TearDownTestSuite() {
        server.stop();
        firstIdles.print("first after open");
        laterIdles.print("all others");
    }

    void SetUp() override {
        display = server.display;
        if (!display) GTEST_SKIP() << "no X server (Xvfb) could be started";
        events.clear();
        parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1000, 400, 0, 0, 0);
        XMapWindow(display, parent);
        XSync(display, False);
    }

    void TearDown() override {
        if (display && parent) XDestroyWindow(display, parent);
        if (display) XSync(display, False);
    }

    void* parentHandle() const { return reinterpret_cast<void*>(uintptr_t(parent)); }

    int children() {
        XSync(display, False);
        Window root, up, *list = nullptr;
        unsigned count = 0;
        XQueryTree(display, parent, &root, &up, &list, &count);
        if (list) XFree(list);
        return int(count);
    }

    void idle(Instance& plugin) {
        auto begin = std::chrono::steady_clock::now();
        plugin.dispatch(effEditIdle);
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
        (justOpened ? firstIdles : laterIdles).add(ms);
        justOpened = false;
    }
    intptr_t open(Instance& plugin) {
        justOpened = true;
        return plugin.dispatch(effEditOpen, 0, 0, parentHandle());
    }

    // Idle calls, as a host makes them, until `done` holds (at most about 5 s)...
    void pump(Instance& plugin, const std::function<bool()>& done) {
        for (int round = 0; round < 1000; ++round) {
            XSync(display, False);
            idle(plugin);
            if (done()) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    // ...or enough of them for everything sent so far to be drawn.
    void settle(Instance& plugin) {
        for (int round = 0; round < 20; ++round) {
            XSync(display, False);
            idle(plugin);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    void move(int x, int y) {
        XTestFakeMotionEvent(display, DefaultScreen(display), x, y, CurrentTime);
        XSync(display, False);
    }
    void button(bool press) {
        XTestFakeButtonEvent(display, 1, press ? True : False, CurrentTime);
        XSync(display, False);
    }
    // Press at (x, y), move by (dx, dy) in ten steps, release; a click when both are 0.  Returns
    // what the host heard from the gesture.
    std::vector<HostEvent> drag(Instance& plugin, int x, int y, int dx, int dy) {
        size_t before = events.size();
        move(x, y);
        button(true);
        for (int step = 1; step <= 10; ++step) {
            if (dx || dy) move(x + dx * step / 10, y + dy * step / 10);
            idle(plugin);
        }
        button(false);
        pump(plugin, [&] { return events.size() > before && events.back().opcode == audioMasterEndEdit; });
        return std::vector<HostEvent>(events.begin() + long(before), events.end());
    }

    Screenshot shot() { return xtest::grab(display, parent, 1000, 400); }

    Display* display = nullptr;
    Window parent = 0;
};

// The description's initial values, in parameter order.
std::vector<float> initialValues() { return {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f}; }

// A gesture on one control: pressed at (x, y) in the control, moved by dy, and the value it must
// send.  A knob in linear mode covers its range in 200 pixels, so 100 pixels are half of it; a
// switch's positions share its extent evenly.
struct Gesture {
    int x, y, dy;
    float sends;
};
struct ControlRow {
    int index;
    const char* name;
    int left, top, width, height;
    float fromHost;  // set by the host first: what is drawn must change, only in the control's box
    std::vector<Gesture> gestures;
};

// Each control starts away from its initial value (the Oversampling switch between two positions,
// shown at the nearer one), and every gesture changes the value, so each one must be reported.
const std::vector<ControlRow> panel = {
    {6, "Input", 185, 272, 66, 66, 0.75f, {{33, 33, 100, 0.25f}}},
    {0, "Volume", 281, 272, 66, 66, 0.2f, {{33, 33, -100, 0.7f}}},
    {1, "Feedback", 369, 272, 66, 66, 0.9f, {{33, 33, 100, 0.4f}}},
    {2, "Output", 465, 272, 66, 66, 0.3f, {{33, 33, -100, 0.8f}}},
    {3, "Oversampling", 723, 274, 40, 20, 0.8f, {{5, 10, 0, 0.0f}, {35, 10, 0, 1.0f}, {20, 10, 0, 0.5f}}},
    {5, "CPU", 671, 304, 20, 40, 1.0f, {{10, 10, 0, 0.0f}, {10, 30, 0, 1.0f}}},
    {4, "Cabinet", 721, 304, 20, 40, 0.0f, {{10, 30, 0, 1.0f}, {10, 10, 0, 0.0f}}},
    {7, "Stereo", 778, 304, 20, 40, 1.0f, {{10, 10, 0, 0.0f}, {10, 30, 0, 1.0f}}},
};

TEST_F(EditorHost, EveryControlReportsItsMovesAndFollowsTheHost) {
    Instance plugin(recordingHost);
    plugin.start();
    int threadsBefore = threadCount();
    ASSERT_EQ(open(plugin), 1);
    settle(plugin);
    EXPECT_EQ(threadCount(), threadsBefore);  // the module draws in the host's idle calls only
    EXPECT_EQ(children(), 1);

    // The pictures come from inside the module: the window is the panel with every control at the
    // effect's values, pixel for pixel as composed from the committed files.
    Screenshot before = shot();
    xtest::savePng(before, xtest::screenshotPath("editor-through-plugin.png"));
    std::vector<float> values = initialValues();
    xtest::Difference d = compare(before, compose(values, 0));
    EXPECT_EQ(d.count, 0) << "differs in " << d.box.left << "," << d.box.top << " .. " << d.box.right << ","
                          << d.box.bottom;

    for (const ControlRow& row : panel) {
        SCOPED_TRACE(row.name);
        const size_t i = size_t(row.index);
        // The host's setParameter turns this control on screen, and only it, and isn't echoed.
        events.clear();
        plugin.setParameter(row.index, row.fromHost);
        settle(plugin);
        Screenshot automated = shot();
        d = compare(before, automated);
        EXPECT_GT(d.count, 50);
        EXPECT_GE(d.box.left, row.left);
        EXPECT_LE(d.box.right, row.left + row.width);
        EXPECT_GE(d.box.top, row.top);
        EXPECT_LE(d.box.bottom, row.top + row.height);
        values[i] = row.fromHost;
        EXPECT_EQ(compare(automated, compose(values, 0)).count, 0);
        EXPECT_TRUE(events.empty());

        // Each gesture: one edit of this parameter, begin, automations, end, ending at the value.
        for (const Gesture& g : row.gestures) {
            std::vector<HostEvent> heard = drag(plugin, row.left + g.x, row.top + g.y, 0, g.dy);
            ASSERT_GE(heard.size(), 3u);
            EXPECT_EQ(heard.front().opcode, audioMasterBeginEdit);
            EXPECT_EQ(heard.back().opcode, audioMasterEndEdit);
            float last = values[i];
            int automates = 0;
            for (auto& e : heard) {
                EXPECT_EQ(e.index, row.index);
                if (e.opcode != audioMasterAutomate) continue;
                // A drag's steps move one way, without overshoot.
                if (g.dy) {
                    EXPECT_TRUE((e.value - last) * (g.sends - values[i]) > 0 &&
                                std::abs(e.value - values[i]) <= std::abs(g.sends - values[i]) + 1e-6f)
                        << e.value;
                }
                last = e.value;
                ++automates;
            }
            if (g.dy == 0) {
                EXPECT_EQ(automates, 1);  // a click sends its position once
            }
            EXPECT_NEAR(last, g.sends, 1e-6);
            if (g.dy) {
                std::printf("%-12s from %.6g, drag %d px %s: sends %.6g (%d automate calls)\n", row.name,
                            values[i], std::abs(g.dy), g.dy < 0 ? "up" : "down", last, automates);
            } else {
                std::printf("%-12s from %.6g, click at (%d, %d): sends %.6g\n", row.name, values[i], g.x, g.y,
                            last);
            }
            values[i] = g.sends;
            for (size_t k = 0; k < values.size(); ++k) EXPECT_NEAR(plugin.getParameter(int(k)), values[k], 1e-6) << k;
            settle(plugin);
            before = shot();
            EXPECT_EQ(compare(before, compose(values, 0)).count, 0);
        }
    }

    // Closed, changed while closed, opened again: a new window at the current values.
    plugin.dispatch(effEditClose);
    EXPECT_EQ(children(), 0);
    plugin.setParameter(2, 0.9f);
    values[2] = 0.9f;
    idle(plugin);
    ASSERT_EQ(open(plugin), 1);
    settle(plugin);
    EXPECT_EQ(children(), 1);
    EXPECT_EQ(compare(shot(), compose(values, 0)).count, 0);
    // ...which takes the mouse as the first did: Output 40 pixels down from 0.9.
    drag(plugin, 498, 305, 0, 40);
    auto moves = automations();
    ASSERT_FALSE(moves.empty());
    EXPECT_EQ(moves.back().index, 2);
    EXPECT_NEAR(moves.back().value, 0.7f, 1e-6);
    values[2] = 0.7f;

    // More cycles, with host changes in between, for the sanitizers to see every path again.
    for (int cycle = 0; cycle < 5; ++cycle) {
        plugin.dispatch(effEditClose);
        plugin.setParameter(0, 0.1f * float(cycle));
        values[0] = 0.1f * float(cycle);
        ASSERT_EQ(open(plugin), 1);
        plugin.setParameter(3, 1.0f);
        values[3] = 1.0f;
        settle(plugin);
        EXPECT_EQ(children(), 1);
        EXPECT_EQ(compare(shot(), compose(values, 0)).count, 0) << cycle;
    }
    plugin.dispatch(effEditClose);
    EXPECT_EQ(children(), 0);
    EXPECT_EQ(threadCount(), threadsBefore);
}

// The donation button opens the page through the desktop's opener, found on the PATH: here a
// stand-in that writes down its arguments.  Either of the button's frames opens it, and no
// parameter moves.
TEST_F(EditorHost, DonateButtonCallsTheOpenerAndNothingElse) {
    namespace fs = std::filesystem;
    fs::path directory = fs::temp_directory_path() / ("orm-opener-" + std::to_string(getpid()));
    fs::create_directories(directory);
    fs::path log = directory / "calls";
    fs::remove(log);
    {
        std::ofstream script(directory / "xdg-open");
        script << "#!/bin/sh\nprintf '%s %s\\n' \"$#\" \"$1\" >> '" << log.string() << "'\n";
    }
    fs::permissions(directory / "xdg-open", fs::perms::owner_all);
    std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", (directory.string() + ":" + oldPath).c_str(), 1);
    auto calls = [&] {
        std::vector<std::string> lines;
        std::ifstream in(log);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    };

    Instance plugin(recordingHost);
    plugin.start();
    int threadsBefore = threadCount();
    ASSERT_EQ(open(plugin), 1);
    settle(plugin);
    for (int click = 1; click <= 2; ++click) {
        events.clear();
        move(500, 250);
        button(true);
        button(false);
        pump(plugin, [&] { return calls().size() >= size_t(click); });
        settle(plugin);
        ASSERT_EQ(calls().size(), size_t(click));
        // One argument, the page; the host part is a build setting.
        const std::string call = calls().back();
        std::printf("opener called with: %s\n", call.c_str());
        EXPECT_EQ(call.rfind("1 http", 0), 0u) << call;
        const std::string page = "/product.php?id=103#donate";
        EXPECT_EQ(call.substr(call.size() - std::min(call.size(), page.size())), page);
        EXPECT_TRUE(events.empty());  // no automation, no edit gesture
        for (int k = 0; k < 8; ++k) EXPECT_EQ(plugin.getParameter(k), initialValues()[size_t(k)]) << k;
        // The button flips its picture at each click; nothing else changes.
        EXPECT_EQ(compare(shot(), compose(initialValues(), click % 2)).count, 0);
    }
    EXPECT_EQ(threadCount(), threadsBefore);
    plugin.dispatch(effEditClose);
    setenv("PATH", oldPath.c_str(), 1);
    fs::remove_all(directory);
}

TEST_F(EditorHost, ClosingThePlugInWithItsEditorOpen) {
    int threadsBefore = threadCount();
    {
        Instance plugin(recordingHost);
        plugin.start();
        ASSERT_EQ(open(plugin), 1);
        settle(plugin);
        EXPECT_EQ(children(), 1);
        // Suspend and effClose with the window still up: the effect takes its editor with it.
        EXPECT_EQ(plugin.close(), 1);
    }
    EXPECT_EQ(children(), 0);
    EXPECT_EQ(threadCount(), threadsBefore);
    // The host's window and connection are unharmed.
    XWindowAttributes attributes;
    EXPECT_NE(XGetWindowAttributes(display, parent, &attributes), 0);
    EXPECT_EQ(attributes.width, 1000);
}

}  // namespace
