#pragma once
// A graph of filters connected by ports, run in one of three methods: Block (whole blocks, no
// feedback), Sequential (sample by sample, feedback with one sample of delay) and Iterative
// (sample by sample, feedback iterated to a fixed point).

#include <memory>
#include <vector>

#include "engine/Graph.h"

namespace vrn {

enum ProcessingMethod { Block = 0, Sequential = 1, Iterative = 2 };

class DSPGraph : public Graph {
public:
    typedef std::vector<std::shared_ptr<std::vector<int>>> PortTable;

    DSPGraph();

    std::shared_ptr<Context> getContext() override { return context; }
    void setContext(const std::shared_ptr<DSPContext>& newContext) { context = newContext; }
    const std::shared_ptr<DSPContext>& getDSPContext() const { return context; }

    void setMaxBlockSize(int size) override;
    void setSamplingRate(scalar rate) override;
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs,
                 size_t framesPerBuffer) override;
    // Load time: checks the set-up, sizes the scratch lists, fixes the running order.
    void init() override;
    void setProperties(const Properties& properties) override;

    ProcessingMethod getProcessingMethod() const { return processingMethod; }
    const std::vector<int>& getFilterOrder() const { return filterOrder; }

    // The wiring, filled by the parser (or by code building a graph) before init().
    void setWiring(const std::shared_ptr<PortTable>& sources, const std::shared_ptr<PortTable>& ports,
                   const std::shared_ptr<std::vector<int>>& filters,
                   const std::shared_ptr<std::vector<int>>& filterPorts);

private:
    void checkWiring();
    void computeFilterOrder();
    void wireSequentialInputs();
    scalar* bypassTarget(int output);
    void processBlock(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t frames);
    void processSequential(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t frames);
    void processIterative(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t frames);

    std::shared_ptr<DSPContext> context;
    std::vector<std::vector<scalar*>> sampleInputs;
    std::vector<scalar> inputSamples;
    std::shared_ptr<std::vector<scalar*>> inputPointers;
    std::shared_ptr<std::vector<scalar>> iterationInputs;
    std::vector<scalar> currentOutputs;
    std::vector<scalar> previousOutputs;
    std::vector<std::shared_ptr<std::vector<scalar>>> outputBuffers;
    bool initialized = false;
    std::shared_ptr<PortTable> inputSources;
    std::shared_ptr<PortTable> inputPorts;
    std::shared_ptr<std::vector<int>> outputPorts;
    std::shared_ptr<std::vector<int>> outputFilters;
    std::vector<int> filterOrder;
    scalar relativeTollerance = 0.0f;
    scalar absoluteTollerance = 0.0f;
    int maxIterations = 1;
    ProcessingMethod processingMethod = Block;
};

}  // namespace vrn
