#pragma once
// Runs a system description directly through the engine's Driver.

#include <memory>

#include "engine/Driver.h"
#include "tools/orm-render/Renderer.h"

namespace orm_render {

class SystemRenderer : public Renderer {
public:
    // Throws std::runtime_error naming the file: with its line for XML that does not parse,
    // with the system's own message for a faulty description.
    explicit SystemRenderer(const std::string& path);

    size_t numberOfInputs() const override { return driver->getNumberOfInputs(); }
    size_t numberOfOutputs() const override { return driver->getNumberOfOutputs(); }
    // The controls, their panel kind read from ControlType: knobs and switches as drawn.
    std::vector<Parameter> parameters() const override;
    void set(size_t index, double value) override;
    void start(double rate, int maxBlock) override;
    const std::vector<float*>& process(std::vector<float*>& inputs, size_t frames) override;
    void stop() override { driver->setSuspended(true); }
    unsigned long long failedSamples() const override;
    vrn::Driver& getDriver() { return *driver; }

private:
    std::shared_ptr<vrn::Driver> driver;
};

}  // namespace orm_render
