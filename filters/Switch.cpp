#include "filters/Switch.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <locale>
#include <sstream>

namespace vrn {

namespace {

// Read as a text stream reads an int: leading blanks skipped, stops at the first misfit, 0 on failure.
int streamInt(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    int value = 0;
    stream >> value;
    return stream.fail() ? 0 : value;  // out of range is a failure too
}

}  // namespace

int SwitchMeta::getInputIndex(const std::string& portName) {
    if (portName.compare(0, 3, "in_") != 0)
        throw InvalidArgumentException("Invalid input port name: " + portName +
                                       ". INput port name must start with \"in_\" followed by a number.");
    int index = toInt(portName.substr(3));
    if (index < 0 || index >= numberOfInputs)
        throw InvalidArgumentException("SwitchMeta: Invalid input port " + portName +
                                       ", NumberOfInputs=" + toString(numberOfInputs));
    return index;
}

void Switch::validate(int inputs, int newPosition) const {
    if (inputs < 0) throw InvalidArgumentException("Switch: Number of inputs must be specified");
    if (inputs < 2) throw InvalidArgumentException("Switch: NumberOfInputs must be greater than 1.");
    if (newPosition >= inputs)
        throw InvalidArgumentException("Switch: Invalid position " + toString(newPosition) +
                                       ". NumberOfInputs=" + toString(inputs));
}

void Switch::propertiesChanged(const Properties& changed) {
    auto inputs = changed.find("NumberOfInputs");
    if (inputs != changed.end()) {
        numberOfInputs = streamInt(inputs->second);
        meta->setNumberOfInputs(numberOfInputs);
    }
    auto place = changed.find("Position");
    if (place != changed.end()) position = streamInt(place->second);
    validate(numberOfInputs, position);
}

void Switch::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Position") throw InvalidArgumentException("Switch: Unknown property " + propertyName);
    int newPosition = static_cast<int>(std::floor(value + 0.5f));
    validate(numberOfInputs, newPosition);
    position = newPosition;
}

void Switch::init(const std::string&, std::shared_ptr<DSPContext>&) { sizePorts(); }

void Switch::init(const std::string& filterName, const Properties& filterProperties,
                  std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    propertiesChanged(properties);
    sizePorts();
}

void Switch::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    if (framesPerBuffer == 0) return;
    const scalar* in = position >= 0 && static_cast<size_t>(position) < inputs.size() ? inputs[static_cast<size_t>(position)] : nullptr;
    if (in)
        std::memmove(filterOutputs[0], in, framesPerBuffer * sizeof(scalar));
    else
        std::fill(filterOutputs[0], filterOutputs[0] + framesPerBuffer, 0.0f);
}

void Switch::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = inputs->at(static_cast<size_t>(position));
}

}  // namespace vrn
