// The LV2 UI as a host embeds it, in a private X server: it asks for the panel's size, reports a
// knob's drag as port writes in panel units between the touch of its gesture, follows the host's
// port events, and never writes back what the host told it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lv2/ui/ui.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "plugin/lv2/Lv2Ports.h"
#include "support/XServer.h"

namespace {

// What the UI told the host: a port's new value, or the start or end of a gesture on it.
struct Event {
    enum Kind { Write, TouchOn, TouchOff } kind;
    uint32_t port;
    float value;
};

class Lv2UI : public ::testing::Test {
protected:
    void SetUp() override {
        server.start();
        if (!server.display) GTEST_SKIP() << "no Xvfb with XTest";
        display = server.display;
        parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1000, 400, 0, 0, 0);
        XMapWindow(display, parent);
        XSync(display, False);
        void* library = dlopen((std::string(ORM_LV2_BUNDLE) + "/orm_lv2_ui.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        auto entry = reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library, "lv2ui_descriptor"));
        ASSERT_NE(entry, nullptr);
        type = entry(0);
        ASSERT_NE(type, nullptr);
        ASSERT_STREQ(type->URI, orm_lv2::kUiUri);
    }
    void TearDown() override {
        if (handle) type->cleanup(handle);
        server.stop();
    }

    LV2UI_Handle open(const char* pluginUri, bool withParent = true) {
        const LV2_Feature parentFeature = {LV2_UI__parent, reinterpret_cast<void*>(parent)};
        const LV2_Feature resizeFeature = {LV2_UI__resize, &resize};
        const LV2_Feature touchFeature = {LV2_UI__touch, &touch};
        const LV2_Feature* features[] = {&parentFeature, &resizeFeature, &touchFeature, nullptr};
        auto write = [](LV2UI_Controller self, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
            if (format == 0 && size == sizeof(float))
                static_cast<Lv2UI*>(self)->events.push_back({Event::Write, port, *static_cast<const float*>(buffer)});
        };
        // Without a parent: the features after it.
        return type->instantiate(type, pluginUri, ORM_LV2_BUNDLE, write, this, &widget,
                                 withParent ? features : features + 1);
    }

    void idle(int rounds = 20) {
        auto* interface = static_cast<const LV2UI_Idle_Interface*>(type->extension_data(LV2_UI__idleInterface));
        for (int round = 0; round < rounds; ++round) {
            XSync(display, False);
            interface->idle(handle);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    // Press at (x, y), move by dy in ten steps, release; what the UI told the host meanwhile.
    std::vector<Event> drag(int x, int y, int dy) {
        events.clear();
        XTestFakeMotionEvent(display, DefaultScreen(display), x, y, CurrentTime);
        XTestFakeButtonEvent(display, 1, True, CurrentTime);
        idle(2);
        for (int step = 1; step <= 10; ++step) {
            if (dy) XTestFakeMotionEvent(display, DefaultScreen(display), x, y + dy * step / 10, CurrentTime);
            idle(2);
        }
        XTestFakeButtonEvent(display, 1, False, CurrentTime);
        idle();
        return events;
    }

    xtest::PrivateServer server;
    Display* display = nullptr;
    Window parent = 0;
    const LV2UI_Descriptor* type = nullptr;
    LV2UI_Handle handle = nullptr;
    LV2UI_Widget widget = nullptr;
    std::vector<Event> events;
    int width = 0, height = 0;
    LV2UI_Resize resize = {this, [](LV2UI_Feature_Handle self, int w, int h) {
                               static_cast<Lv2UI*>(self)->width = w;
                               static_cast<Lv2UI*>(self)->height = h;
                               return 0;
                           }};
    LV2UI_Touch touch = {this, [](LV2UI_Feature_Handle self, uint32_t port, bool grabbed) {
                             const Event::Kind kind = grabbed ? Event::TouchOn : Event::TouchOff;
                             static_cast<Lv2UI*>(self)->events.push_back({kind, port, 0});
                         }};
};

TEST_F(Lv2UI, EmbedsThePanelWritesGesturesInPanelUnitsAndShowsHostValuesWithoutEcho) {
    EXPECT_EQ(open("http://example.org/another-plugin"), nullptr);
    EXPECT_EQ(open(orm_lv2::kPluginUri, false), nullptr);  // nowhere to embed
    handle = open(orm_lv2::kMonoPluginUri);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(width, 1000);
    EXPECT_EQ(height, 400);
    // The host says where the controls stand; the widgets follow without a word back (nor did
    // opening say one).
    const float volume = 2.0f, factor = 8.0f;
    type->port_event(handle, 0, sizeof(float), 0, &volume);
    type->port_event(handle, 3, sizeof(float), 0, &factor);
    const xtest::Screenshot shown = xtest::grab(display, parent, 1000, 400);
    idle();
    EXPECT_TRUE(events.empty());
    // Drawn in the host's window: the panel there changed.
    EXPECT_GT(xtest::compare(shown, xtest::grab(display, parent, 1000, 400)).count, 0);

    // Volume: from 2, 100 pixels up are half the range more, 7, written on the way there.
    const std::vector<Event> gesture = drag(281 + 33, 272 + 33, -100);
    ASSERT_GE(gesture.size(), 3u);
    float last = volume;
    for (size_t i = 0; i < gesture.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(gesture[i].port, 0u);
        EXPECT_EQ(gesture[i].kind, i == 0 ? Event::TouchOn : i + 1 < gesture.size() ? Event::Write : Event::TouchOff);
        if (gesture[i].kind != Event::Write) continue;
        EXPECT_GE(gesture[i].value, last);  // one way, no overshoot
        last = gesture[i].value;
    }
    EXPECT_NEAR(last, 7.0f, 0.05f);

    // A click on the oversampling switch's left position: 2x, in the port's units.
    int writes = 0;
    for (const Event& event : drag(723 + 5, 274 + 10, 0)) {
        EXPECT_EQ(event.port, 3u);
        if (event.kind != Event::Write) continue;
        EXPECT_EQ(event.value, 2.0f);
        ++writes;
    }
    EXPECT_GT(writes, 0);
}

}  // namespace
