#pragma once
// Shared by the editor tests: a recording stand-in for the effect and the shipped controls.

#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "plugin/OrmEditor.h"

struct RecordingHost : EditorHost {
    struct Call {
        std::string what;
        int index;
        float value;
    };
    std::vector<float> parameters;
    std::vector<Call> calls;

    explicit RecordingHost(std::vector<float> values) : parameters(std::move(values)) {}
    float getParameter(int index) override { return parameters.at(size_t(index)); }
    void setParameterAutomated(int index, float value) override {
        calls.push_back({"automate", index, value});
        parameters.at(size_t(index)) = value;
    }
    bool beginEdit(int index) override {
        calls.push_back({"begin", index, 0});
        return true;
    }
    bool endEdit(int index) override {
        calls.push_back({"end", index, 0});
        return true;
    }
    std::vector<Call> automations() const {
        std::vector<Call> result;
        for (auto& call : calls)
            if (call.what == "automate") result.push_back(call);
        return result;
    }
};

// The eight controls of the built-in description with their widget data, in index order.
inline std::shared_ptr<OrmEditor::ControlList> shippedControls() {
    struct Row {
        const char* name;
        float value;
        const char* type;
        const char* image;
        int x, y, w, h;
    } rows[] = {
        {"Gain", 0.5f, "CAnimKnob", "fender-chicken.png", 281, 272, 66, 66},
        {"Feedback", 1.0f, "CAnimKnob", "fender-chicken.png", 369, 272, 66, 66},
        {"Vol", 0.5f, "CAnimKnob", "fender-chicken.png", 465, 272, 66, 66},
        {"Oversampling", 0.5f, "CHorizontalSwitch", "HorizontalSwitch-3P.png", 723, 274, 40, 20},
        {"Cabinet", 1.0f, "CVerticalSwitch", "VerticalSwitch.png", 721, 304, 20, 40},
        {"CPU", 0.0f, "CVerticalSwitch", "VerticalSwitch.png", 671, 304, 20, 40},
        {"Input", 0.5f, "CAnimKnob", "fender-chicken.png", 185, 272, 66, 66},
        {"Stereo", 0.0f, "CVerticalSwitch", "VerticalSwitch.png", 778, 304, 20, 40},
    };
    auto list = std::make_shared<OrmEditor::ControlList>();
    for (auto& row : rows) {
        auto control = std::make_shared<vrn::Control>(row.name, row.name, row.value);
        vrn::Properties ui;
        ui["ControlType"] = row.type;
        ui["Image"] = row.image;
        ui["X"] = std::to_string(row.x);
        ui["Y"] = std::to_string(row.y);
        ui["Width"] = std::to_string(row.w);
        ui["Height"] = std::to_string(row.h);
        if (std::string(row.name) == "Oversampling") {
            ui["NumberOfImages"] = "3";
            ui["HeightOfOneImage"] = "20.0";
        }
        control->setUIProperties(ui);
        control->setIndex(int(list->size()));
        list->push_back(control);
    }
    return list;
}

inline std::vector<float> shippedValues() { return {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f}; }
