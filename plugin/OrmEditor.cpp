#include "plugin/OrmEditor.h"

#include <map>
#include <string>
#include <thread>

#include "engine/Exceptions.h"
#include "plugin/DonateButton.h"

#ifndef ORM_DONATION_HOST
#define ORM_DONATION_HOST "https://tarnvale.example"
#endif

OrmEditor::OrmEditor(EditorHost* owner, const std::shared_ptr<ControlList>& controlList)
    : AEffGUIEditor(owner), controls(controlList), widgets(controlList ? controlList->size() : 0, nullptr) {
    CBitmap* panel = new CBitmap("orm.png");
    rect.right = int16_t(panel->getWidth());
    rect.bottom = int16_t(panel->getHeight());
    panel->forget();
}

bool OrmEditor::open(void* parent) {
    // A second open without a close replaces the window.
    if (frame) close();
    AEffGUIEditor::open(parent);
    CBitmap* panel = new CBitmap("orm.png");
    CFrame* newFrame = new CFrame(CRect(0, 0, panel->getWidth(), panel->getHeight()), this);
    newFrame->setBackground(panel);

    // One widget per control; the four knobs share one decoded strip.
    std::map<std::string, CControl*> byName;
    try {
        std::map<std::string, CBitmap*> bitmaps;
        struct Release {
            std::map<std::string, CBitmap*>& bitmaps;
            ~Release() {
                for (auto& entry : bitmaps) entry.second->forget();
            }
        } release{bitmaps};
        for (const auto& control : *controls) {
            CBitmap*& bitmap = bitmaps[control->getImage()];
            if (!bitmap) bitmap = new CBitmap(control->getImage());
            CRect size(control->getX(), control->getY(), control->getX() + control->getWidth(),
                       control->getY() + control->getHeight());
            const std::string& type = control->getControlType();
            int tag = control->getIndex();
            CControl* widget;
            if (type == "CAnimKnob") {
                widget = new CAnimKnob(size, this, tag, bitmap, CPoint(0, 0));
            } else if (type == "CHorizontalSwitch") {
                int frameHeight = int(control->getHeightOfOneImage());
                widget = new CHorizontalSwitch(size, this, tag, control->getNumberOfImages(), frameHeight,
                                               control->getNumberOfImages(), bitmap);
            } else if (type == "CVerticalSwitch") {
                widget = new CVerticalSwitch(size, this, tag, bitmap);
            } else {
                throw vrn::VRNException("Invalid ControlType " + type);
            }
            CControl*& slot = byName[control->getName()];
            if (slot) newFrame->addView(slot);  // a repeated name: the earlier widget still belongs on the frame
            slot = widget;
        }
    } catch (...) {
        for (auto& entry : byName) entry.second->forget();
        panel->forget();
        newFrame->forget();
        AEffGUIEditor::close();
        throw;
    }
    for (auto& entry : byName) newFrame->addView(entry.second);
    for (size_t i = 0; i < controls->size(); ++i) widgets[i] = byName[(*controls)[i]->getName()];

    frame = newFrame;
    rect.right = int16_t(panel->getWidth());
    rect.bottom = int16_t(panel->getHeight());
    panel->forget();
    shown.store(true);
    setKnobMode(kLinearMode);
    for (size_t i = 0; i < controls->size(); ++i) setParameter(int(i), host ? host->getParameter(int(i)) : 0.0f);
    frame->addView(new DonateButton(std::string(ORM_DONATION_HOST) + "/product.php?id=103#donate"));
    // Without a window (no display, a wrong parent) the editor stays open but shows nothing.
    return frame->open(parent);
}

OrmEditor::~OrmEditor() { close(); }

void OrmEditor::close() {
    // A writer either saw the editor shown and is counted, or sees it closed: once the count is
    // zero no thread can reach the widgets any more.
    shown.store(false);
    while (writers.load() != 0) std::this_thread::yield();
    AEffGUIEditor::close();
}

void OrmEditor::setParameter(int index, float value) {
    if (index < 0 || size_t(index) >= widgets.size()) return;
    writers.fetch_add(1);
    if (shown.load() && widgets[index]) widgets[index]->setValue(value);
    writers.fetch_sub(1);
}

void OrmEditor::valueChanged(CControl* control) {
    int tag = control->getTag();
    if (tag >= 0 && size_t(tag) < controls->size() && host) host->setParameterAutomated(tag, control->getValue());
}

CControl* OrmEditor::getWidget(int index) const {
    if (!frame || index < 0 || size_t(index) >= widgets.size()) return nullptr;
    return widgets[index];
}
