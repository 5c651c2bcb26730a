#include "engine/Graph.h"

#include <algorithm>

#include "engine/Driver.h"

namespace vrn {

namespace {

bool setRequest(std::vector<bool>& requests, bool on, int index) {
    if (requests.size() < static_cast<size_t>(index) + 1) requests.resize(static_cast<size_t>(index) + 1, false);
    requests[index] = on;
    return std::find(requests.begin(), requests.end(), true) != requests.end();
}

}  // namespace

void Graph::setNumberOfInputs(int number) {
    if (number < 0)
        throw InvalidArgumentException("Number of inputs must be greater than zero. Number of inputs =" +
                                       toString(number));
    numberOfInputs = number;
}

void Graph::getResult(std::string) {
    throw VRNException("Graph::getResult(std::string outputName) is not yet implemented.");
}

scalar* Graph::getOutput(int index) {
    if (index < 0 || index >= numberOfOutputs)
        throw InvalidArgumentException("Graph: invalid output index: " + toString(index) +
                                       " Number of outputs: " + toString(numberOfOutputs));
    return outputs[index];
}

void Graph::setOff(bool on, int index) {
    off = setRequest(offRequests, on, index);
    multipliersMayHaveChanged();
}

void Graph::setBypass(bool on, int index) {
    bypass = setRequest(bypassRequests, on, index);
    multipliersMayHaveChanged();
}

void Graph::multipliersMayHaveChanged() {
    if (multiplier == 1.0) return;
    std::shared_ptr<Context> context = getContext();
    if (context && context->getDriver()) context->getDriver()->invalidateMultipliers();
}

void Graph::setSuspend(bool on) {
    if (multiplier != 1.0)
        throw VRNException("Graph: Cannot suspend a graph with the multiplier not equal to 1. multiplier=" +
                           toString(multiplier));
    suspended = on;
}

void Graph::setInputMultiplier(double value) {
    inputMultiplier = value;
    outputMultiplier = value * multiplier;
}

void Graph::setMultiplier(double value) {
    multiplier = value;
    outputMultiplier = value * inputMultiplier;
}

void Graph::setProperties(const Properties& properties) {
    auto off = properties.find("Off");
    if (off != properties.end()) setOff(toBool(off->second), 0);
    auto bypass = properties.find("Bypass");
    if (bypass != properties.end()) setBypass(toBool(bypass->second), 0);
}

void Graph::setProperty(const std::string& propertyName, scalar value) {
    // The name is cut at "_" as parseWords does, without allocating: this runs on the audio thread.
    const char* words[3] = {nullptr, nullptr, nullptr};
    size_t lengths[3] = {0, 0, 0};
    size_t count = 0;
    for (size_t i = 0; i < propertyName.size();) {
        if (propertyName[i] == '_') { ++i; continue; }
        size_t end = propertyName.find('_', i);
        if (end == std::string::npos) end = propertyName.size();
        if (count < 3) { words[count] = propertyName.data() + i; lengths[count] = end - i; }
        ++count;
        i = end;
    }
    if (count == 0) throw InvalidArgumentException("Graph: Unknown property " + propertyName);
    int index = 0;
    if (count == 2) {
        char digits[32] = {0};
        std::copy_n(words[1], std::min(lengths[1], sizeof(digits) - 1), digits);
        index = static_cast<int>(parseLong(digits));
        if (index < 0) throw InvalidArgumentException("Graph: Unknown property " + propertyName);
    }
    auto is = [&](const char* word) { return std::string::traits_type::length(word) == lengths[0] &&
                                             std::equal(words[0], words[0] + lengths[0], word); };
    if (is("Off"))
        setOff(value > 0.5f, index);
    else if (is("Bypass"))
        setBypass(value > 0.5f, index);
    else if (is("Suspend"))
        setSuspend(value > 0.5f);
    else
        throw InvalidArgumentException("Graph: Unknown property " + propertyName);
}

}  // namespace vrn
