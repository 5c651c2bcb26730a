// The editor as a host meets it: the module loaded with dlopen and driven only through its record
// and dispatcher, its window opened in a window of the host's on a private Xvfb server, the mouse
// moved by XTest, the host callback recording what the plug-in reports, and screenshots compared
// with the panel composed independently from the picture files.  The window tests skip when no X
// server can be started.

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "editor/PanelComposition.h"
#include "plugin/PluginHost.h"
#include "support/XServer.h"

namespace {

using testhost::Instance;
using xtest::compare;
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

TEST(EditorRecord, SizeAndFlagBeforeAnyWindow) {
    Instance plugin(recordingHost);
    EXPECT_TRUE(plugin.effect->flags & effFlagsHasEditor);
    ERect* rect = nullptr;
    ASSERT_EQ(plugin.dispatch(effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(std::vector<int>({rect->left, rect->top, rect->right, rect->bottom}), std::vector<int>({0, 0, 1000, 400}));
}

xtest::PrivateServer server;

class EditorHost : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server.start(); }
    static void TearDownTestSuite() { server.stop(); }

    void SetUp() override {
        display = server.display;
        if (!display) GTEST_SKIP() << "no X server (Xvfb) could be started";
        events.clear();
        parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1000, 400, 0, 0, 0);
        XMapWindow(display, parent);
        XSync(display, False);
        plugin.start();
        threadsBefore = threadCount();
    }

    void TearDown() override {
        if (display && parent) XDestroyWindow(display, parent);
        if (display) XSync(display, False);
    }

    int children() {
        XSync(display, False);
        Window root, up, *list = nullptr;
        unsigned count = 0;
        XQueryTree(display, parent, &root, &up, &list, &count);
        if (list) XFree(list);
        return int(count);
    }

    intptr_t open() { return plugin.dispatch(effEditOpen, 0, 0, reinterpret_cast<void*>(uintptr_t(parent))); }

    // Idle calls, as a host makes them, until `done` holds (at most about 5 s); with no
    // condition, enough of them for everything sent so far to be drawn.
    void pump(const std::function<bool()>& done = nullptr) {
        for (int round = 0; round < (done ? 1000 : 20); ++round) {
            XSync(display, False);
            plugin.dispatch(effEditIdle);
            if (done && done()) return;
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
    // Press at (x, y), move down by dy in ten steps, release; a click when dy is 0.  Returns what
    // the host heard from the gesture.
    std::vector<HostEvent> drag(int x, int y, int dy) {
        size_t before = events.size();
        move(x, y);
        button(true);
        for (int step = 1; step <= 10; ++step) {
            if (dy) move(x, y + dy * step / 10);
            plugin.dispatch(effEditIdle);
        }
        button(false);
        pump([&] { return events.size() > before && events.back().opcode == audioMasterEndEdit; });
        return std::vector<HostEvent>(events.begin() + long(before), events.end());
    }

    // Draws what is pending, and how many pixels differ from the panel composed for VALUES.
    int differences(const std::vector<float>& values, int donateFrame = 0) {
        pump();
        return compare(xtest::grab(display, parent, 1000, 400), compose(values, donateFrame)).count;
    }

    Display* display = nullptr;
    Window parent = 0;
    Instance plugin{recordingHost};
    int threadsBefore = 0;
};

TEST_F(EditorHost, EveryControlReportsItsMovesAndFollowsTheHost) {
    ASSERT_EQ(open(), 1);
    pump();
    EXPECT_EQ(threadCount(), threadsBefore);  // the module draws in the host's idle calls only
    EXPECT_EQ(children(), 1);

    // The pictures come from inside the module: the window is the panel with every control at the
    // effect's values, pixel for pixel as composed from the committed files.
    std::vector<float> values = initialValues();
    EXPECT_EQ(differences(values), 0);

    // A knob, the three-way switch (twice) and the last control, a toggle: a value set by the host
    // first (away from the current one; the Oversampling switch between two positions, shown at
    // the nearer one), then a gesture pressed at (x, y) in the control and moved by dy, and the
    // value it must send.  A knob in linear mode covers its range in 200 pixels; a switch's
    // positions share its extent evenly.  The other controls are widgets of the same kinds,
    // placed from the same description: the first screenshot holds them.
    const struct {
        int index;
        float fromHost;
        int x, y, dy;
        float sends;
    } rows[] = {
        {6, 0.75f, 33, 33, 100, 0.25f},
        {3, 0.8f, 5, 10, 0, 0.0f},
        {3, 0.3f, 35, 10, 0, 1.0f},
        {7, 1.0f, 10, 10, 0, 0.0f},
    };
    for (const auto& row : rows) {
        const size_t i = size_t(row.index);
        const PanelControl& c = panelControls[i];
        SCOPED_TRACE(c.name);
        // The host's setParameter turns this control on screen, and only it, and isn't echoed.
        events.clear();
        plugin.setParameter(row.index, row.fromHost);
        values[i] = row.fromHost;
        EXPECT_EQ(differences(values), 0);
        EXPECT_TRUE(events.empty());

        // The gesture: one edit of this parameter, begin, automations, end, ending at the value.
        std::vector<HostEvent> heard = drag(c.left + row.x, c.top + row.y, row.dy);
        ASSERT_GE(heard.size(), 3u);
        EXPECT_EQ(heard.front().opcode, audioMasterBeginEdit);
        EXPECT_EQ(heard.back().opcode, audioMasterEndEdit);
        for (auto& e : heard) EXPECT_EQ(e.index, row.index);
        EXPECT_TRUE(row.dy || heard.size() == 3u);  // a click sends its position once
        EXPECT_NEAR(heard[heard.size() - 2].value, row.sends, 1e-6);
        values[i] = row.sends;
        for (size_t k = 0; k < values.size(); ++k) EXPECT_NEAR(plugin.getParameter(int(k)), values[k], 1e-6) << k;
        EXPECT_EQ(differences(values), 0);
    }

    // Closed, changed while closed, opened again: a new window at the current values.
    plugin.dispatch(effEditClose);
    EXPECT_EQ(children(), 0);
    plugin.setParameter(2, 0.9f);
    values[2] = 0.9f;
    plugin.dispatch(effEditIdle);
    ASSERT_EQ(open(), 1);
    EXPECT_EQ(differences(values), 0);
    EXPECT_EQ(children(), 1);
    plugin.dispatch(effEditClose);
    EXPECT_EQ(children(), 0);
    EXPECT_EQ(threadCount(), threadsBefore);
}

// The donation button opens the page through the desktop's opener, found on the PATH: here a
// stand-in that writes down its arguments.  No parameter moves.
TEST_F(EditorHost, DonateButtonCallsTheOpenerAndNothingElse) {
    namespace fs = std::filesystem;
    fs::path directory = fs::temp_directory_path() / ("orm-opener-" + std::to_string(getpid()));
    fs::create_directories(directory);
    fs::path log = directory / "calls";
    fs::remove(log);
    std::ofstream(directory / "xdg-open") << "#!/bin/sh\nprintf '%s %s\\n' \"$#\" \"$1\" >> '" << log.string() << "'\n";
    fs::permissions(directory / "xdg-open", fs::perms::owner_all);
    std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", (directory.string() + ":" + oldPath).c_str(), 1);
    auto calls = [&] {
        std::ifstream in(log);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };

    ASSERT_EQ(open(), 1);
    pump();
    move(500, 250);
    button(true);
    button(false);
    pump([&] { return !calls().empty(); });
    // One argument, the page; the host part is a build setting.
    const std::string call = calls(), page = "/product.php?id=103#donate\n";
    EXPECT_EQ(call.rfind("1 http", 0), 0u) << call;
    EXPECT_EQ(call.substr(call.size() - std::min(call.size(), page.size())), page);
    // The button flips its picture; nothing else changes.
    EXPECT_EQ(differences(initialValues(), 1), 0);
    EXPECT_TRUE(events.empty());  // no automation, no edit gesture
    EXPECT_EQ(threadCount(), threadsBefore);
    plugin.dispatch(effEditClose);
    setenv("PATH", oldPath.c_str(), 1);
    fs::remove_all(directory);
}

TEST_F(EditorHost, ABadParentGivesNoWindowAndClosingWithTheEditorOpenTakesIt) {
    EXPECT_EQ(plugin.dispatch(effEditOpen, 0, 0, reinterpret_cast<void*>(uintptr_t(0x7fffff))), 0);
    plugin.dispatch(effEditIdle);
    plugin.setParameter(0, 0.2f);
    plugin.dispatch(effEditClose);
    plugin.setParameter(0, 0.5f);

    ASSERT_EQ(open(), 1);
    pump();
    EXPECT_EQ(children(), 1);
    // Suspend and effClose with the window still up: the effect takes its editor with it.
    EXPECT_EQ(plugin.close(), 1);
    EXPECT_EQ(children(), 0);
    EXPECT_EQ(threadCount(), threadsBefore);
    // The host's window and connection are unharmed.
    XWindowAttributes attributes;
    EXPECT_NE(XGetWindowAttributes(display, parent, &attributes), 0);
    EXPECT_EQ(attributes.width, 1000);
}

}  // namespace
