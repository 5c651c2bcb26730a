#include "tools/orm-render/SystemRenderer.h"

#include <fstream>
#include <stdexcept>

#include "circuit/Circuit.h"

namespace orm_render {

SystemRenderer::SystemRenderer(const std::string& path) : driver(vrn::Driver::create()) {
    std::ifstream description(path, std::ios::binary);
    if (!description) throw std::runtime_error("cannot read " + path);
    driver->init(description);
}

void SystemRenderer::set(const std::string& name, double value) {
    std::string known;
    for (auto& control : *driver->getControls()) {
        if (control->getName() == name) {
            control->setValue(static_cast<float>(value));
            return;
        }
        known += (known.empty() ? "" : ", ") + control->getName();
    }
    throw std::runtime_error("unknown control " + name + " (controls: " + (known.empty() ? "none" : known) + ")");
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
