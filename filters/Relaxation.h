#pragma once
// Damps a feedback loop iterated to a fixed point: each pass moves its value only part of the way
// ("Relaxation") towards the new input.  It has no block buffer and stands only in Iterative graphs.

#include "engine/Element.h"

namespace vrn {

class Relaxation : public Filter {
public:
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    scalar process(scalar) override { return 0.0f; }
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    // Unlike other filters, the state moves with every pass: that is the damping.
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override { return iterationResults; }
    // Starts the next sample from a straight-line prediction of the last two (when extrapolating).
    void endIteration(int frameIndex) override;

    void setMaxBlockSize(int) override {}
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override;
    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override { lastValue = 0; }
    virtual void setRelaxation(scalar value);

private:
    [[noreturn]] void refuse() const;

    std::vector<scalar> iterationResults;
    bool relaxationChanged = false;
    scalar relaxation = 0;
    scalar lastValue = 0;
    scalar previousValue = 0;
    bool extrapolate = true;
};

}  // namespace vrn
