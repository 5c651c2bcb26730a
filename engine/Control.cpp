#include "engine/Control.h"

#include <thread>

namespace vrn {

Control::Control(const std::string& controlName, const std::string& controlDisplayName, float initialValue)
    : name(controlName), displayName(controlDisplayName), value(initialValue) {}

void Control::setUIProperties(Properties& ui) {
    auto text = [&](const char* key, std::string& field) {
        auto it = ui.find(key);
        if (it != ui.end()) field = it->second;
    };
    auto number = [&](const char* key, int& field) {
        auto it = ui.find(key);
        if (it != ui.end()) field = toInt(it->second);
    };
    text("Image", image);
    text("ControlType", controlType);
    number("X", x);
    number("Y", y);
    number("Width", width);
    number("Height", height);
    number("NumberOfImages", numberOfImages);
    auto frame = ui.find("HeightOfOneImage");
    if (frame != ui.end()) heightOfOneImage = parseDouble(frame->second);
}

void Control::acquire() {
    while (lock.fetch_or(1, std::memory_order_acquire) & 1) std::this_thread::yield();
}

void Control::setProperties(const std::shared_ptr<PropertyList>& list) {
    if (properties) throw VRNException("Control: Properties are already set.");
    properties = list;
    scalarFunctions.assign(list->size(), [](float v) { return v; });
    vectorFunctions.assign(list->size(), [](float) { return std::make_shared<std::vector<scalar>>(); });
    for (auto& property : *properties) property->scalarValue = getValue();
    dirty.exchange(1);
}

void Control::setPropertyFunction(const std::shared_ptr<Property>& property, std::function<float(float)> function) {
    if (!properties) throw VRNException("Control: Properties are not set.");
    acquire();
    for (size_t i = 0; i < properties->size(); ++i) {
        if ((*properties)[i]->index != property->index) continue;
        try {
            // Evaluated before it is stored, so an empty function cannot take the control's place.
            float mapped = function(getValue());
            scalarFunctions[i] = function;
            (*properties)[i]->scalarValue = mapped;
        } catch (...) {
            release();
            throw;
        }
        dirty.exchange(1);
        break;
    }
    release();
}

void Control::setValue(float newValue) {
    acquire();
    try {
        value.store(newValue, std::memory_order_release);
        for (size_t i = 0; properties && i < properties->size(); ++i) {
            Property& property = *(*properties)[i];
            if (property.type == Scalar)
                property.scalarValue = scalarFunctions[i](newValue);
            else if (property.type == Vector)
                property.vectorValue = vectorFunctions[i](newValue);
            else
                throw VRNException("Control: Unknown property type: " + toString(property.type));
        }
    } catch (...) {
        release();
        throw;
    }
    dirty.exchange(1);
    release();
}

}  // namespace vrn
