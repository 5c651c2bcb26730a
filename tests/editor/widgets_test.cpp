// The widget layer and the editor without a window: frame arithmetic, mouse gestures, the way
// values travel between widgets and the effect.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "PanelComposition.h"
#include "engine/Control.h"
#include "engine/Exceptions.h"
#include "plugin/OrmEditor.h"

namespace {

// A stand-in for the effect that writes down what the editor tells it: "begin 0", "set 0 0.25",
// "end 0".
struct RecordingHost : EditorHost {
    std::vector<float> parameters = initialValues();
    std::vector<std::string> calls;

    float getParameter(int index) override { return parameters.at(size_t(index)); }
    void setParameterAutomated(int index, float value) override {
        std::ostringstream call;
        call << "set " << index << " " << value;
        calls.push_back(call.str());
        parameters.at(size_t(index)) = value;
    }
    bool beginEdit(int index) override {
        calls.push_back("begin " + std::to_string(index));
        return true;
    }
    bool endEdit(int index) override {
        calls.push_back("end " + std::to_string(index));
        return true;
    }
};

// The built-in description's controls with their widget data, in index order.
std::shared_ptr<OrmEditor::ControlList> shippedControls() {
    auto list = std::make_shared<OrmEditor::ControlList>();
    for (const PanelControl& c : panelControls) {
        auto control = std::make_shared<vrn::Control>(c.name, c.name, initialValues()[list->size()]);
        vrn::Properties ui;
        ui["ControlType"] = c.frames == 101 ? "CAnimKnob" : c.frames == 3 ? "CHorizontalSwitch" : "CVerticalSwitch";
        ui["Image"] = c.strip;
        ui["X"] = std::to_string(c.left);
        ui["Y"] = std::to_string(c.top);
        ui["Width"] = std::to_string(c.width);
        ui["Height"] = std::to_string(c.height);
        if (c.frames == 3) {
            ui["NumberOfImages"] = "3";
            ui["HeightOfOneImage"] = "20.0";
        }
        control->setUIProperties(ui);
        control->setIndex(int(list->size()));
        list->push_back(control);
    }
    return list;
}

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

// A press at FROM, a move to TO (a click when they are the same), a release.
void drag(CControl* c, CPoint from, CPoint to) {
    c->onMouseDown(from, kLButton);
    if (to.x != from.x || to.y != from.y) c->onMouseMoved(to, kLButton);
    c->onMouseUp(to, 0);
}

}  // namespace

// The pictures come from the resource table this program carries (tests/editor/resources.list).
// One gesture per widget kind; the real window's gestures through the module: tests/editor_host.
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
        {30, 130, kLButton, 0.0f},             // 100 below the start: clamped
        {70, 30, kLButton, 0.7f},              // 40 to the right counts as up
        {30, -20, kLButton | kShift, 0.525f},  // ten times finer
    };
    for (auto& m : moves) {
        knob->onMouseMoved(CPoint(m.x, m.y), m.buttons);
        EXPECT_FLOAT_EQ(knob->getValue(), m.value) << m.x << "," << m.y;
    }
    knob->onMouseUp(CPoint(30, -20), 0);
    knob->onMouseMoved(CPoint(10, -300), 0);  // a move without a press does nothing
    EXPECT_FLOAT_EQ(knob->getValue(), 0.525f);
    EXPECT_EQ(listener.events, (std::vector<std::string>{"begin", "changed", "changed", "changed", "end"}));
    knob->forget();
}

TEST(Widgets, SwitchesSelectThePositionUnderTheMouse) {
    Listener listener;
    CBitmap* slide = new CBitmap("HorizontalSwitch-3P.png");
    CHorizontalSwitch* oversampling = new CHorizontalSwitch(CRect(723, 274, 763, 294), &listener, 3, 3, 20, 3, slide);
    slide->forget();
    oversampling->setValue(0.5f);
    // 40 pixels in thirds; beyond either end stays at the end.
    const std::pair<int, float> at[] = {{736, 0.0f}, {737, 0.5f}, {750, 1.0f}, {900, 1.0f}, {600, 0.0f}};
    for (auto& [x, value] : at) EXPECT_FLOAT_EQ(oversampling->valueAt(CPoint(x, 280)), value) << x;
    drag(oversampling, CPoint(725, 284), CPoint(760, 284));
    oversampling->onMouseDown(CPoint(736, 284), kRButton);  // other buttons do nothing
    EXPECT_EQ(listener.values, (std::vector<float>{0.0f, 1.0f}));
    oversampling->forget();
}

// The editor without a window: what only it decides.  Its widgets in a real window, through the
// module, and the donation button: tests/editor_host.
TEST(Editor, PassesOnlyItsControlsValuesBothWays) {
    RecordingHost host;
    auto controls = shippedControls();
    OrmEditor editor(&host, controls);
    editor.setParameter(0, 0.3f);  // closed: harmless
    EXPECT_EQ(editor.getWidget(0), nullptr);
    editor.open(nullptr);  // no window: the widgets exist all the same
    ASSERT_TRUE(editor.isOpen());
    EXPECT_EQ(editor.getWidget(0)->getBackground()->getNbReference(), 4);  // the four knobs share one strip
    EXPECT_EQ(editor.getWidget(8), nullptr);
    EXPECT_EQ(editor.getWidget(-1), nullptr);
    editor.setParameter(3, 0.3f);
    EXPECT_EQ(dynamic_cast<CHorizontalSwitch*>(editor.getWidget(3))->getFrame(), 1);
    editor.setParameter(8, 0.9f);  // one past the last control
    editor.setParameter(-1, 0.9f);
    EXPECT_TRUE(host.calls.empty());

    // A drag on the Volume knob, 100 pixels down: begin, automation, end reach the effect with
    // the knob's tag.
    drag(editor.getWidget(0), CPoint(314, 305), CPoint(314, 405));
    EXPECT_EQ(host.calls, (std::vector<std::string>{"begin 0", "set 0 0", "end 0"}));
    // A widget whose tag is no control's index reaches nobody.
    CBitmap* strip = new CBitmap("fender-chicken.png");
    CAnimKnob stray(CRect(0, 0, 66, 66), &editor, 8, strip);
    strip->forget();
    stray.remember();  // on the stack: never let the count reach zero
    drag(&stray, CPoint(5, 5), CPoint(5, -50));
    EXPECT_EQ(host.calls.size(), 3u);
    editor.close();
    EXPECT_FALSE(editor.isOpen());
    EXPECT_EQ(editor.getWidget(0), nullptr);

    // A control type without a widget is refused, and leaves the editor usable.
    vrn::Properties ui;
    ui["ControlType"] = "CSlider";
    (*controls)[2]->setUIProperties(ui);
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
