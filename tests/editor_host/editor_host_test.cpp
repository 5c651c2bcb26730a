// The editor as a host meets it: the module loaded with dlopen and driven only through its record
// and dispatcher, its window opened in a window of the host's on a private Xvfb server, the mouse
// moved by XTest, and the host callback recording what the plug-in reports.  The window tests skip
// when no X server can be started.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
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

    // Idle calls, as a host makes them, until `done` holds (at most about 5 s)...
    void pump(Instance& plugin, const std::function<bool()>& done) {
        for (int round = 0; round < 1000; ++round) {
            XSync(display, False);
            plugin.dispatch(effEditIdle);
            if (done()) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    // ...or enough of them for everything sent so far to be drawn.
    void settle(Instance& plugin) {
        for (int round = 0; round < 20; ++round) {
            XSync(display, False);
            plugin.dispatch(effEditIdle);
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
    void drag(Instance& plugin, int x, int y, int dx, int dy) {
        size_t before = events.size();
        move(x, y);
        button(true);
        for (int step = 1; step <= 10; ++step) {
            move(x + dx * step / 10, y + dy * step / 10);
            plugin.dispatch(effEditIdle);
        }
        button(false);
        pump(plugin, [&] { return events.size() > before && events.back().opcode == audioMasterEndEdit; });
    }

    Screenshot shot() { return xtest::grab(display, parent, 1000, 400); }

    Display* display = nullptr;
    Window parent = 0;
};

// The description's initial values, in parameter order.
std::vector<float> initialValues() { return {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f}; }

TEST_F(EditorHost, OpensInTheHostsWindowReportsMovesAndFollowsTheHost) {
    Instance plugin(recordingHost);
    plugin.start();
    int threadsBefore = threadCount();
    ASSERT_EQ(plugin.dispatch(effEditOpen, 0, 0, parentHandle()), 1);
    settle(plugin);
    EXPECT_EQ(threadCount(), threadsBefore);  // the module draws in the host's idle calls only
    EXPECT_EQ(children(), 1);

    // The pictures come from inside the module: the window is the panel with every control at the
    // effect's values, pixel for pixel as composed from the committed files.
    Screenshot opened = shot();
    xtest::savePng(opened, xtest::screenshotPath("editor-through-plugin.png"));
    xtest::Difference d = compare(opened, compose(initialValues(), 0));
    EXPECT_EQ(d.count, 0) << "differs in " << d.box.left << "," << d.box.top << " .. " << d.box.right << ","
                          << d.box.bottom;

    // 40 pixels up on the Volume knob: one gesture, begin, automations, end, all for parameter 0,
    // ending at 0.7 (a 200-pixel drag covers the knob's range in linear mode).
    drag(plugin, 314, 305, 0, -40);
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front().opcode, audioMasterBeginEdit);
    EXPECT_EQ(events.front().index, 0);
    EXPECT_EQ(events.back().opcode, audioMasterEndEdit);
    EXPECT_EQ(events.back().index, 0);
    auto moves = automations();
    ASSERT_FALSE(moves.empty());
    for (auto& m : moves) EXPECT_EQ(m.index, 0);
    EXPECT_NEAR(moves.back().value, 0.7f, 1e-6);
    EXPECT_NEAR(plugin.getParameter(0), 0.7f, 1e-6);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), initialValues()[size_t(i)]) << i;

    // The host's setParameter turns the knob on screen, and only that knob.
    settle(plugin);
    Screenshot dragged = shot();
    events.clear();
    plugin.setParameter(0, 0.1f);
    settle(plugin);
    Screenshot automated = shot();
    d = compare(dragged, automated);
    EXPECT_GT(d.count, 100);
    EXPECT_GE(d.box.left, 281);
    EXPECT_LE(d.box.right, 347);
    EXPECT_GE(d.box.top, 272);
    EXPECT_LE(d.box.bottom, 338);
    std::vector<float> values = initialValues();
    values[0] = 0.1f;
    EXPECT_EQ(compare(automated, compose(values, 0)).count, 0);
    EXPECT_TRUE(events.empty());  // a host's own change is not reported back to it

    // Closed, changed while closed, opened again: a new window at the current values.
    plugin.dispatch(effEditClose);
    EXPECT_EQ(children(), 0);
    plugin.setParameter(2, 0.9f);
    plugin.dispatch(effEditIdle);
    ASSERT_EQ(plugin.dispatch(effEditOpen, 0, 0, parentHandle()), 1);
    settle(plugin);
    EXPECT_EQ(children(), 1);
    values[2] = 0.9f;
    EXPECT_EQ(compare(shot(), compose(values, 0)).count, 0);
    // ...which takes the mouse as the first did: Output 40 pixels down from 0.9.
    drag(plugin, 498, 305, 0, 40);
    moves = automations();
    ASSERT_FALSE(moves.empty());
    EXPECT_EQ(moves.back().index, 2);
    EXPECT_NEAR(moves.back().value, 0.7f, 1e-6);
    plugin.dispatch(effEditClose);
    EXPECT_EQ(threadCount(), threadsBefore);
}

TEST_F(EditorHost, ClosingThePlugInWithItsEditorOpen) {
    int threadsBefore = threadCount();
    {
        Instance plugin(recordingHost);
        plugin.start();
        ASSERT_EQ(plugin.dispatch(effEditOpen, 0, 0, parentHandle()), 1);
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
