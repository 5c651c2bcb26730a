#pragma once
// What orm-render runs audio through: a system description or a hosted module.

#include <string>
#include <vector>

namespace orm_render {

class Renderer {
public:
    virtual ~Renderer() {}
    virtual size_t numberOfInputs() const = 0;
    virtual size_t numberOfOutputs() const = 0;
    // A control by name, value 0..1, before the first block; throws std::runtime_error if unknown.
    virtual void set(const std::string& name, double value) = 0;
    virtual void start(double rate, int maxBlock) = 0;
    // One block: one pointer per input; returns one pointer per output, frames samples each.
    virtual const std::vector<float*>& process(std::vector<float*>& inputs, size_t frames) = 0;
    virtual void stop() = 0;
    // Samples that a circuit could not solve (each repeated the previous one).
    virtual unsigned long long failedSamples() const { return 0; }
};

}  // namespace orm_render
