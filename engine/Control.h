#pragma once
// Control: one user-facing parameter (value 0..1, name, widget data) bound to graph and element
// properties.  Writers run on host or editor threads; the Driver carries the results to the
// elements at the next block without ever waiting.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/Element.h"

namespace vrn {

class Graph;

enum PropertyType { Scalar = 0, Vector = 1 };

struct Property {
    int index = -1;
    std::string name;
    int type = Scalar;
    float scalarValue = 0.0f;
    std::shared_ptr<std::vector<scalar>> vectorValue;
    std::string graphName;
    std::string elementName;
    Element* element = nullptr;
    std::shared_ptr<Graph> graph;
};

typedef std::vector<std::shared_ptr<Property>> PropertyList;

class Control {
public:
    Control(const std::string& name, const std::string& displayName, float value);
    virtual ~Control() {}

    void setUIProperties(Properties& properties);
    // Load time, once: each property starts with the identity function and the control's value.
    void setProperties(const std::shared_ptr<PropertyList>& list);
    // Any thread: the mapping from the control's value to one property's value, applied at once.
    void setPropertyFunction(const std::shared_ptr<Property>& property, std::function<float(float)> function);
    // Any thread but the audio thread: maps the value into every property and marks the control dirty.
    void setValue(float value);

    // Any thread: the value last set, read without waiting for a writer.
    float getValue() const { return value.load(std::memory_order_acquire); }
    const std::string& getName() const { return name; }
    const std::string& getDisplayName() const { return displayName; }
    const std::string& getControlType() const { return controlType; }
    const std::string& getImage() const { return image; }
    int getX() const { return x; }
    int getY() const { return y; }
    int getWidth() const { return width; }
    int getHeight() const { return height; }
    int getNumberOfImages() const { return numberOfImages; }
    double getHeightOfOneImage() const { return heightOfOneImage; }
    int getIndex() const { return index; }
    void setIndex(int newIndex) { index = newIndex; }
    const std::shared_ptr<PropertyList>& getProperties() const { return properties; }

    // The Driver's side, audio thread: one attempt at the lock, never waiting.
    bool isDirty() const { return dirty.load(std::memory_order_acquire) != 0; }
    bool tryLock() { return (lock.fetch_or(1, std::memory_order_acquire) & 1) == 0; }
    void clearDirtyAndUnlock() {
        dirty.exchange(0, std::memory_order_acq_rel);
        lock.store(0, std::memory_order_release);
    }

private:
    void acquire();
    void release() { lock.store(0, std::memory_order_release); }

    std::string controlType;
    std::string image;
    int x = 0, y = 0, width = 0, height = 0;
    int numberOfImages = 0;
    double heightOfOneImage = 0;
    int index = -1;
    std::string name;
    std::string displayName;
    std::atomic<float> value{0.0f};
    std::atomic<uint8_t> dirty{0};
    std::atomic<uint32_t> lock{0};
    std::shared_ptr<PropertyList> properties;
    std::vector<std::function<float(float)>> scalarFunctions;
    std::vector<std::function<std::shared_ptr<std::vector<scalar>>(float)>> vectorFunctions;
};

}  // namespace vrn
