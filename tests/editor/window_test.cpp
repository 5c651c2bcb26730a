// The editor in a real X window: a private Xvfb server, a top-level window standing in for the
// host's, mouse gestures by XTest, and screenshots compared with the pictures composed
// independently.  Skipped when no X server can be started.

#include <gtest/gtest.h>

#include <cairo.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "EditorSupport.h"
#include "PanelComposition.h"
#include "support/XServer.h"
#include "plugin/gui/OpenUrl.h"

namespace {

using xtest::compare;
using xtest::Difference;
using xtest::Screenshot;
using xtest::threadCount;

xtest::PrivateServer server;
Display* display = nullptr;

Screenshot grab(Window window, int width, int height) { return xtest::grab(display, window, width, height); }
void save(const Screenshot& shot, const std::string& name) { xtest::savePng(shot, xtest::screenshotPath(name)); }

class EditorWindow : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server.start();
        display = server.display;
    }

    static void TearDownTestSuite() {
        server.stop();
        display = nullptr;
    }

    void SetUp() override {
        if (!display) GTEST_SKIP() << "no X server (Xvfb) could be started";
        parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1000, 400, 0, 0, 0);
        XMapWindow(display, parent);
        XSync(display, False);
    }

    void TearDown() override {
        if (display && parent) XDestroyWindow(display, parent);
        if (display) XSync(display, False);
    }

    void* parentHandle() const { return reinterpret_cast<void*>(uintptr_t(parent)); }

    // Lets the editor handle what the server sent, until `done` holds (at most about 5 s); with
    // no condition, enough idle rounds for everything sent so far to be drawn.
    void pump(OrmEditor& editor, const std::function<bool()>& done = nullptr) {
        for (int round = 0; round < (done ? 1000 : 20); ++round) {
            XSync(display, False);
            editor.idle();
            if (done && done()) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    void settle(OrmEditor& editor) { pump(editor); }
    Screenshot shot() const { return grab(parent, 1000, 400); }

    void move(int x, int y) {
        XTestFakeMotionEvent(display, DefaultScreen(display), x, y, CurrentTime);
        XSync(display, False);
    }
    void button(bool press) {
        XTestFakeButtonEvent(display, 1, press ? True : False, CurrentTime);
        XSync(display, False);
    }
    void drag(OrmEditor& editor, RecordingHost& host, int x, int y, int dx, int dy) {
        size_t before = host.calls.size();
        move(x, y);
        button(true);
        for (int step = 1; step <= 10; ++step) {
            move(x + dx * step / 10, y + dy * step / 10);
            editor.idle();
        }
        button(false);
        pump(editor, [&] { return host.calls.size() > before && host.calls.back().what == "end"; });
    }
    void click(OrmEditor& editor, RecordingHost& host, int x, int y) { drag(editor, host, x, y, 0, 0); }

    Window parent = 0;
};

}  // namespace

TEST_F(EditorWindow, ShowsTheValuesAndFollowsTheMouse) {
    RecordingHost host(shippedValues());
    OrmEditor editor(&host, shippedControls());
    int threadsBefore = threadCount();
    ASSERT_TRUE(editor.open(parentHandle()));
    settle(editor);
    EXPECT_EQ(threadCount(), threadsBefore);  // no thread of our own

    Screenshot first = shot();
    save(first, "editor.png");
    Difference d = compare(first, compose(host.parameters, 0));
    EXPECT_EQ(d.count, 0) << "differs in " << d.box.left << "," << d.box.top << " .. " << d.box.right << ","
                          << d.box.bottom;

    // Knobs: 100 pixels down takes Volume from 0.5 to 0; 60 up takes Input from 0.5 to 0.8.
    drag(editor, host, 314, 305, 0, 100);
    EXPECT_FLOAT_EQ(host.parameters[0], 0.0f);
    drag(editor, host, 218, 305, 0, -60);
    EXPECT_NEAR(host.parameters[6], 0.8f, 1e-6);
    ASSERT_FALSE(host.calls.empty());
    EXPECT_EQ(host.calls.front().what, "begin");
    EXPECT_EQ(host.calls.front().index, 0);

    // Oversampling: left, middle, right; toggles: the upper half is 0, the lower half 1.
    struct {
        int x, y, index;
        float value;
    } const clicks[] = {{727, 284, 3, 0.0f}, {743, 284, 3, 0.5f}, {759, 284, 3, 1.0f},
                        {731, 308, 4, 0.0f}, {681, 340, 5, 1.0f}, {788, 340, 7, 1.0f}, {788, 308, 7, 0.0f}};
    for (auto& c : clicks) {
        size_t before = host.automations().size();
        click(editor, host, c.x, c.y);
        auto automations = host.automations();
        ASSERT_EQ(automations.size(), before + 1) << c.x << "," << c.y;
        EXPECT_EQ(automations.back().index, c.index);
        EXPECT_FLOAT_EQ(automations.back().value, c.value) << c.x << "," << c.y;
    }

    settle(editor);
    Screenshot moved = shot();
    save(moved, "editor-moved.png");
    d = compare(moved, compose(host.parameters, 0));
    EXPECT_EQ(d.count, 0);

    // The host's setParameter changes only the Feedback knob's square on screen.
    editor.setParameter(1, 0.1f);
    settle(editor);
    Screenshot automated = shot();
    d = compare(moved, automated);
    EXPECT_GT(d.count, 100);
    EXPECT_GE(d.box.left, 369);
    EXPECT_LE(d.box.right, 435);
    EXPECT_GE(d.box.top, 272);
    EXPECT_LE(d.box.bottom, 338);
    host.parameters[1] = 0.1f;

    // Closed and opened again: the window shows the current values.
    editor.close();
    XSync(display, False);
    ASSERT_TRUE(editor.open(parentHandle()));
    settle(editor);
    Screenshot reopened = shot();
    EXPECT_EQ(compare(reopened, automated).count, 0);
    editor.close();
}

TEST_F(EditorWindow, DonateClickOpensThePageOnly) {
    std::vector<std::string> opened;
    setUrlOpener([&](const std::string& url) { opened.push_back(url); });
    RecordingHost host(shippedValues());
    OrmEditor editor(&host, shippedControls());
    ASSERT_TRUE(editor.open(parentHandle()));
    settle(editor);
    move(500, 250);
    button(true);
    button(false);
    pump(editor, [&] { return !opened.empty(); });
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_NE(opened[0].find("/product.php?id=103#donate"), std::string::npos);
    EXPECT_TRUE(host.calls.empty());  // no automation, not even begin or end
    settle(editor);
    Screenshot pressed = shot();
    EXPECT_EQ(compare(pressed, compose(host.parameters, 1)).count, 0);  // the button's second picture
    editor.close();
    setUrlOpener(nullptr);
}

TEST_F(EditorWindow, BadParentGivesNoWindowAndNoCrash) {
    RecordingHost host(shippedValues());
    OrmEditor editor(&host, shippedControls());
    EXPECT_FALSE(editor.open(reinterpret_cast<void*>(uintptr_t(0x7fffff))));
    editor.idle();
    editor.setParameter(0, 0.2f);
    editor.close();
}
