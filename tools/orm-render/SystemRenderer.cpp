#include "tools/orm-render/SystemRenderer.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <pugixml.hpp>

#include "circuit/Circuit.h"
#include "engine/Exceptions.h"

namespace orm_render {

namespace {

// The line and column of a byte offset in TEXT, counted from 1.
std::string where(const std::string& text, ptrdiff_t offset) {
    const size_t end = std::min(text.size(), static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)));
    const size_t line = 1 + static_cast<size_t>(std::count(text.begin(), text.begin() + static_cast<long>(end), '\n'));
    const size_t lineStart = text.rfind('\n', end == 0 ? 0 : end - 1);
    const size_t column = lineStart == std::string::npos || end == 0 ? end + 1 : end - lineStart;
    return std::to_string(line) + ":" + std::to_string(column);
}

}  // namespace

SystemRenderer::SystemRenderer(const std::string& path) : driver(vrn::Driver::create()) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    std::stringstream buffer;
    buffer << file.rdbuf();
    const std::string text = buffer.str();
    // The engine's parser says what is wrong but not where: XML that does not parse is found
    // here first, with its place.
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer(text.data(), text.size());
    if (!parsed)
        throw std::runtime_error(path + ":" + where(text, parsed.offset) + ": not well-formed XML: " + parsed.description());
    std::istringstream description(text);
    try {
        driver->init(description);
    } catch (const vrn::VRNException& error) {
        throw std::runtime_error(path + ": " + error.getMessage());
    }
}

std::vector<Parameter> SystemRenderer::parameters() const {
    std::vector<Parameter> result;
    for (const auto& control : *driver->getControls()) {
        Parameter parameter;
        parameter.index = static_cast<int>(result.size());
        parameter.name = control->getName();
        if (control->getDisplayName() != control->getName()) parameter.longName = control->getDisplayName();
        parameter.value = control->getValue();
        // Hosts send 0..1; a control that starts outside it (an oversampling factor of 2) was
        // written to take the numbers its targets want.
        parameter.unbounded = parameter.value < 0 || parameter.value > 1;
        const std::string& type = control->getControlType();
        if (type == "CAnimKnob" || type == "CKnob") {
            parameter.kind = Parameter::Knob;
        } else if (type == "CHorizontalSwitch" || type == "CVerticalSwitch" || type == "COnOffButton") {
            parameter.kind = Parameter::Switch;
            const int count = type == "COnOffButton" ? 2 : std::max(2, control->getNumberOfImages());
            if (count == 2)
                parameter.positions = {"off", "on"};
            else
                for (int i = 1; i <= count; ++i) parameter.positions.push_back(std::to_string(i));
        }
        std::string what;
        for (const auto& property : *control->getProperties()) {
            what += what.empty() ? "sets " : ", ";
            what += property->name + " of " + property->graphName +
                    (property->elementName.empty() ? "" : "/" + property->elementName);
        }
        parameter.what = what.empty() ? "sets nothing" : what;
        result.push_back(parameter);
    }
    return result;
}

void SystemRenderer::set(size_t index, double value) {
    (*driver->getControls())[index]->setValue(static_cast<float>(value));
}

void SystemRenderer::start(double rate, int maxBlock) {
    driver->setSamplingRate(static_cast<float>(rate));
    driver->setMaxBlockSize(maxBlock);
}

unsigned long long SystemRenderer::failedSamples() const {
    unsigned long long failed = 0;
    for (const auto& graph : *driver->getGraphs())
        if (auto* circuit = dynamic_cast<const vrn::Circuit*>(graph.get())) failed += circuit->getFailedSamples();
    return failed;
}

const std::vector<float*>& SystemRenderer::process(std::vector<float*>& inputs, size_t frames) {
    driver->process(inputs, frames);
    return driver->getOutputs();
}

}  // namespace orm_render
