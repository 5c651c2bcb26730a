// The LV2 UI: the plug-in's editor in an X11 child window of the host's, in a library of its
// own.  It reaches the plug-in only through the host: a widget's move becomes a port write (in
// panel units), a gesture a touch, and the host's port events move the widgets.  No thread and
// no timer: the host's idle calls handle the window's events.

#include <lv2/core/lv2.h>
#include <lv2/ui/ui.h>

#include <pugixml.hpp>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

#include "engine/DSPGraphParser.h"
#include "plugin/OrmEditor.h"
#include "plugin/OrmSystemDescription.h"
#include "plugin/lv2/Lv2Ports.h"

namespace {

using orm_lv2::kControlPorts;

// The panel's controls as the built-in description places them; the editor needs no engine.
std::shared_ptr<OrmEditor::ControlList> panelControls() {
    pugi::xml_document document;
    const std::string text = makeOrmSystemDescription();
    if (!document.load_buffer(text.data(), text.size())) return nullptr;
    auto controls = std::make_shared<OrmEditor::ControlList>();
    for (const pugi::xpath_node& entry : document.select_nodes("/System/Controls/Control")) {
        pugi::xml_node node = entry.node();
        auto control = std::make_shared<vrn::Control>(node.attribute("Name").value(),
                                                      node.attribute("DisplayName").value(), 0.0f);
        vrn::Properties ui = vrn::attributesOf(node.child("UIProperties"));
        control->setUIProperties(ui);
        control->setIndex(static_cast<int>(controls->size()));
        controls->push_back(control);
    }
    return controls;
}

class Lv2Editor : public EditorHost {
public:
    Lv2Editor(LV2UI_Write_Function write, LV2UI_Controller controller, const LV2UI_Touch* touch)
        : write(write), controller(controller), touch(touch) {
        for (uint32_t i = 0; i < kControlPorts; ++i)
            values[i] = orm_lv2::toControlValue(i, orm_lv2::kControls[i].defaultValue);
    }
    ~Lv2Editor() override {
        if (editor) editor->close();
    }

    // GUI thread.  False if there is no window to be had.
    bool open(void* parent) {
        std::shared_ptr<OrmEditor::ControlList> controls = panelControls();
        if (!controls || controls->size() != kControlPorts) return false;
        editor.reset(new OrmEditor(this, controls));
        return editor->open(parent) && window() != 0;
    }

    unsigned long window() const {
        CFrame* frame = editor ? editor->getFrame() : nullptr;
        PlatformWindow* platform = frame ? frame->getPlatformWindow() : nullptr;
        return platform ? platform->getNativeHandle() : 0;
    }

    void size(int& width, int& height) {
        ERect* rect = nullptr;
        editor->getRect(&rect);
        width = rect->right - rect->left;
        height = rect->bottom - rect->top;
    }

    void idle() { editor->idle(); }

    // From the host: a control port's value in panel units.
    void portEvent(uint32_t port, float value) {
        const float control = orm_lv2::toControlValue(port, value);
        if (std::isnan(control)) return;
        values[port] = control;
        editor->setParameter(static_cast<int>(port), control);
    }

    // From the widgets.
    float getParameter(int index) override { return validIndex(index) ? values[index] : 0.0f; }
    void setParameterAutomated(int index, float value) override {
        if (!validIndex(index) || std::isnan(value)) return;
        values[index] = value;
        const float port = orm_lv2::toPortValue(static_cast<uint32_t>(index), value);
        write(controller, static_cast<uint32_t>(index), sizeof(float), 0, &port);
        editor->setParameter(index, value);
    }
    bool beginEdit(int index) override { return gesture(index, true); }
    bool endEdit(int index) override { return gesture(index, false); }

private:
    static bool validIndex(int index) { return index >= 0 && static_cast<uint32_t>(index) < kControlPorts; }

    bool gesture(int index, bool grabbed) {
        if (!validIndex(index) || !touch) return false;
        touch->touch(touch->handle, static_cast<uint32_t>(index), grabbed);
        return true;
    }

    LV2UI_Write_Function write;
    LV2UI_Controller controller;
    const LV2UI_Touch* touch;
    float values[kControlPorts];
    std::unique_ptr<OrmEditor> editor;
};

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* pluginUri, const char*, LV2UI_Write_Function write,
                         LV2UI_Controller controller, LV2UI_Widget* widget, const LV2_Feature* const* features) {
    if (!write || !widget || !pluginUri) return nullptr;
    if (std::strcmp(pluginUri, orm_lv2::kPluginUri) && std::strcmp(pluginUri, orm_lv2::kMonoPluginUri)) return nullptr;
    void* parent = nullptr;
    const LV2UI_Resize* resize = nullptr;
    const LV2UI_Touch* touch = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        if (!std::strcmp(features[i]->URI, LV2_UI__parent)) parent = features[i]->data;
        if (!std::strcmp(features[i]->URI, LV2_UI__resize)) resize = static_cast<const LV2UI_Resize*>(features[i]->data);
        if (!std::strcmp(features[i]->URI, LV2_UI__touch)) touch = static_cast<const LV2UI_Touch*>(features[i]->data);
    }
    if (!parent) return nullptr;
    Lv2Editor* self = nullptr;
    try {
        self = new Lv2Editor(write, controller, touch);
        if (!self->open(parent)) {
            delete self;
            return nullptr;
        }
        *widget = reinterpret_cast<LV2UI_Widget>(self->window());
        if (resize && resize->ui_resize) {
            int width = 0, height = 0;
            self->size(width, height);
            resize->ui_resize(resize->handle, width, height);
        }
        return self;
    } catch (...) {
        delete self;
        return nullptr;
    }
}

void cleanup(LV2UI_Handle handle) {
    try {
        delete static_cast<Lv2Editor*>(handle);
    } catch (...) {
    }
}

void portEvent(LV2UI_Handle handle, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    if (format != 0 || size != sizeof(float) || !buffer || port >= kControlPorts) return;
    try {
        static_cast<Lv2Editor*>(handle)->portEvent(port, *static_cast<const float*>(buffer));
    } catch (...) {
    }
}

int idle(LV2UI_Handle handle) {
    try {
        static_cast<Lv2Editor*>(handle)->idle();
        return 0;
    } catch (...) {
        return 1;
    }
}

const LV2UI_Idle_Interface kIdle = {idle};

const void* extensionData(const char* uri) { return !std::strcmp(uri, LV2_UI__idleInterface) ? &kIdle : nullptr; }

const LV2UI_Descriptor kDescriptor = {orm_lv2::kUiUri, instantiate, cleanup, portEvent, extensionData};

}  // namespace

extern "C" LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}
