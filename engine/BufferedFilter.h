#pragma once
// The common shape of a one-output filter: its block buffer, the outputs vector the graph reads
// it through, and the results of the last iteration pass.

#include "engine/Element.h"

namespace vrn {

class BufferedFilter : public Filter {
public:
    ~BufferedFilter() override;

    // Load time or between blocks: grows the buffer (contents not kept), never shrinks it.
    void setMaxBlockSize(int size) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override { return outputs; }
    std::vector<scalar>& getLastIterationResults() override { return iterationResults; }
    // Stores the last pass's result as the sample of the block.
    void endIteration(int frameIndex) override;
    // The graph's form: runs the filter into its own outputs.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override {
        process(inputs, outputs, framesPerBuffer);
    }
    using Filter::process;

    // Forms a filter does not have refuse, with an empty message, unless it overrides them.
    scalar process(scalar in) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

protected:
    // typeName starts the filter's messages ("Gain: Invalid maxBlockSize0").
    explicit BufferedFilter(const char* typeName) : typeName(typeName) {}
    // Sizes outputs (all null but entry 0, the buffer) and iterationResults (all 0) to the ports.
    void sizePorts(size_t ports = 1);

    [[noreturn]] static void refuse();

    const char* typeName;
    scalar* buffer = nullptr;
    std::vector<scalar*> outputs;
    std::vector<scalar> iterationResults;
};

}  // namespace vrn
