// The widget layer and the editor without a window: frame arithmetic, mouse gestures, the way
// values travel between widgets and the effect, and the editor's life cycle.

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "EditorSupport.h"
#include "engine/Exceptions.h"
#include "plugin/DonateButton.h"
#include "plugin/gui/OpenUrl.h"

namespace {

struct Listener : CControlListener {
    std::vector<std::string> events;
    std::vector<float> values;
    void valueChanged(CControl* control) override {
        events.push_back("changed");
        values.push_back(control->getValue());
    }
    void controlBeginEdit(CControl*) override { events.push_back("begin"); }
    void controlEndEdit(CControl*) override { events.push_back("end"); }
};

void press(CControl* c, CPoint at) {
    c->onMouseDown(at, kLButton);
    c->onMouseUp(at, 0);
}

}  // namespace

// The pictures come from the resource table this program carries (tests/editor/resources.list).
TEST(Widgets, FramesComeFromTheValueAndTheBitmap) {
    struct {
        float value;
        int frames, frame;
    } const cases[] = {{0.504f, 101, 50}, {0.506f, 101, 51}, {0.24f, 3, 0}, {0.26f, 3, 1}, {0.76f, 3, 2},
                       {0.49f, 2, 0},     {0.5f, 2, 1},      {-3.0f, 3, 0}, {7.0f, 3, 2},  {0.7f, 1, 0}};
    for (auto& c : cases) EXPECT_EQ(frameForValue(c.value, c.frames), c.frame) << c.value << " of " << c.frames;

    CBitmap* knobStrip = new CBitmap("fender-chicken.png");
    CBitmap* missing = new CBitmap("no-such.png");
    EXPECT_EQ(missing->getWidth(), 0);
    CAnimKnob* knob = new CAnimKnob(CRect(281, 272, 347, 338), nullptr, 0, knobStrip);
    CAnimKnob* empty = new CAnimKnob(CRect(0, 0, 66, 66), nullptr, 0, missing);
    EXPECT_EQ(empty->getNumSubPixmaps(), 0);
    knob->setValue(0.25f);
    EXPECT_EQ(knob->getFrame(), 25);
    // The widgets hold their own references: the bitmaps outlive their creators' release.
    knobStrip->forget();
    missing->forget();
    EXPECT_EQ(knob->getBackground()->getHeight(), 6666);
    knob->forget();
    empty->forget();
}

TEST(Widgets, KnobFollowsALinearDrag) {
    Listener listener;
    CBitmap* strip = new CBitmap("fender-chicken.png");
    CAnimKnob* knob = new CAnimKnob(CRect(0, 0, 66, 66), &listener, 3, strip);
    strip->forget();
    knob->setValue(0.5f);
    knob->onMouseDown(CPoint(30, 30), kLButton);
    struct {
        int x, y;
        int buttons;
        float value;
    } const moves[] = {
        {30, 10, kLButton, 0.6f},           // 20 pixels up
        {30, 130, kLButton, 0.0f},          // 100 below the start: clamped
        {70, 30, kLButton, 0.7f},           // 40 to the right counts as up
        {30, -470, kLButton, 1.0f},         // clamped above
        {30, -20, kLButton | kShift, 0.525f},  // ten times finer
    };
    for (auto& m : moves) {
        knob->onMouseMoved(CPoint(m.x, m.y), m.buttons);
        EXPECT_FLOAT_EQ(knob->getValue(), m.value) << m.x << "," << m.y;
    }
    knob->onMouseUp(CPoint(30, -20), 0);
    std::vector<std::string> expected = {"begin", "changed", "changed", "changed", "changed", "changed", "end"};
    EXPECT_EQ(listener.events, expected);
    // The value is the drag's, not the sum of moves; moves without a press do nothing.
    knob->onMouseDown(CPoint(10, 10), kLButton);
    knob->onMouseMoved(CPoint(10, -90), kLButton);
    knob->onMouseMoved(CPoint(10, 10), kLButton);
    knob->onMouseUp(CPoint(10, 10), 0);
    knob->onMouseMoved(CPoint(10, -300), 0);
    EXPECT_FLOAT_EQ(knob->getValue(), 0.525f);
    knob->forget();
}

TEST(Widgets, SwitchesSelectThePositionUnderTheMouse) {
    Listener listener;
    CBitmap* slide = new CBitmap("HorizontalSwitch-3P.png");
    CHorizontalSwitch* oversampling = new CHorizontalSwitch(CRect(723, 274, 763, 294), &listener, 3, 3, 20, 3, slide);
    slide->forget();
    oversampling->setValue(0.5f);
    // 40 pixels in thirds; beyond either end stays at the end.
    const std::pair<int, float> at[] = {{736, 0.0f}, {737, 0.5f}, {749, 0.5f}, {750, 1.0f}, {900, 1.0f}, {600, 0.0f}};
    for (auto& [x, value] : at) EXPECT_FLOAT_EQ(oversampling->valueAt(CPoint(x, 280)), value) << x;
    oversampling->onMouseDown(CPoint(725, 284), kLButton);
    oversampling->onMouseMoved(CPoint(760, 284), kLButton);
    oversampling->onMouseUp(CPoint(760, 284), 0);
    EXPECT_EQ(listener.values, (std::vector<float>{0.0f, 1.0f}));

    CBitmap* toggleStrip = new CBitmap("VerticalSwitch.png");
    CVerticalSwitch* toggle = new CVerticalSwitch(CRect(778, 304, 798, 344), &listener, 7, toggleStrip);
    toggleStrip->forget();
    listener.values.clear();
    press(toggle, CPoint(788, 340));  // lower half: the second position
    press(toggle, CPoint(788, 306));
    toggle->onMouseDown(CPoint(788, 306), kRButton);  // other buttons do nothing
    EXPECT_EQ(listener.values, (std::vector<float>{1.0f, 0.0f}));
    toggle->forget();
    oversampling->forget();
}

TEST(Editor, LifeCycleAndOneWidgetPerControl) {
    RecordingHost host(shippedValues());
    auto controls = shippedControls();
    OrmEditor editor(&host, controls);
    ERect* rect = nullptr;
    ASSERT_TRUE(editor.getRect(&rect));  // known before open
    EXPECT_EQ(rect->right - rect->left, 1000);
    EXPECT_EQ(rect->bottom - rect->top, 400);
    editor.setParameter(0, 0.3f);  // closed: harmless
    EXPECT_EQ(editor.getWidget(0), nullptr);
    for (int round = 0; round < 2; ++round) {  // open, close, open
        editor.open(nullptr);                  // no window: the widgets exist all the same
        ASSERT_TRUE(editor.isOpen());
        EXPECT_EQ(editor.getKnobMode(), kLinearMode);
        for (int i = 0; i < 8; ++i) {
            CControl* widget = editor.getWidget(i);
            ASSERT_NE(widget, nullptr);
            EXPECT_EQ(widget->getTag(), i);
            EXPECT_EQ(widget->getViewSize().left, (*controls)[size_t(i)]->getX());
            EXPECT_FLOAT_EQ(widget->getValue(), host.parameters[size_t(i)]) << i;
        }
        auto* knob = dynamic_cast<CAnimKnob*>(editor.getWidget(0));
        auto* slide = dynamic_cast<CHorizontalSwitch*>(editor.getWidget(3));
        auto* toggle = dynamic_cast<CVerticalSwitch*>(editor.getWidget(7));
        ASSERT_TRUE(knob && slide && toggle);
        EXPECT_EQ(knob->getNumSubPixmaps(), 101);
        EXPECT_EQ(slide->getNumSubPixmaps(), 3);
        EXPECT_EQ(slide->getHeightOfOneImage(), 20);
        EXPECT_EQ(toggle->getNumSubPixmaps(), 2);
        EXPECT_EQ(toggle->getHeightOfOneImage(), 40);
        // The four knobs share one decoded strip.
        EXPECT_EQ(knob->getBackground()->getNbReference(), 4);
        EXPECT_EQ(editor.getFrame()->getViews().size(), 9u);  // eight widgets and the donation button
        host.parameters[1] = 0.25f;  // changed while the next round's editor is closed
        editor.close();
        EXPECT_FALSE(editor.isOpen());
        editor.setParameter(1, 0.75f);  // closed: ignored
    }
    EXPECT_TRUE(host.calls.empty());
}

TEST(Editor, ValuesTravelBothWaysAndTheDonateButtonTouchesNoParameter) {
    std::vector<std::string> opened;
    setUrlOpener([&](const std::string& url) { opened.push_back(url); });
    RecordingHost host(shippedValues());
    OrmEditor editor(&host, shippedControls());
    editor.open(nullptr);
    auto* button = dynamic_cast<DonateButton*>(editor.getFrame()->getViews().back());
    ASSERT_NE(button, nullptr);
    CRect box = button->getViewSize();
    EXPECT_EQ(std::vector<int>({int(box.left), int(box.top), int(box.getWidth()), int(box.getHeight())}),
              std::vector<int>({454, 237, 92, 26}));
    for (int click = 0; click < 3; ++click) press(button, CPoint(500, 250));  // either picture opens the page
    ASSERT_EQ(opened.size(), 3u);
    EXPECT_EQ(opened[0].substr(0, 8), "https://");
    EXPECT_NE(opened[0].find("/product.php?id=103#donate"), std::string::npos);
    setUrlOpener(nullptr);

    editor.setParameter(3, 0.3f);
    EXPECT_EQ(dynamic_cast<CHorizontalSwitch*>(editor.getWidget(3))->getFrame(), 1);
    editor.setParameter(8, 0.9f);  // one past the last control
    editor.setParameter(-1, 0.9f);
    EXPECT_TRUE(host.calls.empty());

    // A drag on the Volume knob: begin, automation, end reach the effect with the knob's tag.
    CControl* knob = editor.getWidget(0);
    knob->onMouseDown(CPoint(314, 305), kLButton);
    knob->onMouseMoved(CPoint(314, 405), kLButton);  // 100 pixels down
    knob->onMouseUp(CPoint(314, 405), 0);
    ASSERT_EQ(host.calls.size(), 3u);
    EXPECT_EQ(host.calls[0].what, "begin");
    EXPECT_EQ(host.calls[1].index, 0);
    EXPECT_FLOAT_EQ(host.calls[1].value, 0.0f);
    EXPECT_EQ(host.calls[2].what, "end");

    // A widget whose tag is no control's index reaches nobody.
    CBitmap* strip = new CBitmap("fender-chicken.png");
    CAnimKnob stray(CRect(0, 0, 66, 66), &editor, 8, strip);
    strip->forget();
    stray.remember();  // on the stack: never let the count reach zero
    stray.onMouseDown(CPoint(5, 5), kLButton);
    stray.onMouseMoved(CPoint(5, -50), kLButton);
    stray.onMouseUp(CPoint(5, -50), 0);
    EXPECT_EQ(host.automations().size(), 1u);
}

TEST(Editor, UnknownControlTypeIsRefusedAndLeavesTheEditorUsable) {
    RecordingHost host(shippedValues());
    auto controls = shippedControls();
    vrn::Properties ui;
    ui["ControlType"] = "CSlider";
    (*controls)[2]->setUIProperties(ui);
    OrmEditor editor(&host, controls);
    try {
        editor.open(nullptr);
        FAIL() << "no exception";
    } catch (const vrn::VRNException& e) {
        EXPECT_EQ(e.getMessage(), "Invalid ControlType CSlider");
    }
    EXPECT_FALSE(editor.isOpen());
    ui["ControlType"] = "CAnimKnob";
    (*controls)[2]->setUIProperties(ui);
    editor.open(nullptr);
    EXPECT_TRUE(editor.isOpen());
}

TEST(OpenUrl, StartsXdgOpenWithTheUrlAsOneArgumentAndNoShell) {
    // A stand-in xdg-open early on the PATH writes down its arguments; shell characters in the
    // URL must arrive untouched, as one argument.
    namespace fs = std::filesystem;
    fs::path directory = fs::temp_directory_path() / ("orm-open-" + std::to_string(::getpid()));
    fs::create_directories(directory);
    std::string record = (directory / "arguments.txt").string();
    std::ofstream(directory / "xdg-open") << "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\" > '" << record << ".tmp'\nmv '"
                                          << record << ".tmp' '" << record << "'\n";
    fs::permissions(directory / "xdg-open", fs::perms::owner_all);
    std::string oldPath = std::getenv("PATH") ? std::getenv("PATH") : "";
    setenv("PATH", (directory.string() + ":" + oldPath).c_str(), 1);

    const std::string url = "https://tarnvale.example/product.php?id=103#donate;$(touch x)&y";
    openUrl(url);  // returns at once; the opener runs on
    for (int i = 0; i < 1000 && !fs::exists(record); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    setenv("PATH", oldPath.c_str(), 1);
    std::ifstream file(record);
    std::string arguments((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(arguments, "1|" + url + "|");
    for (int i = 0; i < 100; ++i) collectUrlOpeners();  // reaps the finished opener without blocking
    fs::remove_all(directory);
}
