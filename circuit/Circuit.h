#pragma once
// A graph that is an electrical netlist, solved anew for every sample by modified nodal analysis.

#include <atomic>
#include <memory>
#include <vector>

#include "circuit/Component.h"
#include "circuit/MNAContext.h"
#include "engine/Graph.h"

namespace vrn {

// What is solved and how: made by the parser, handed to the circuit.
struct Analysis {
    int type = 0;              // 0 "DC", 1 "AC"
    int initialCondition = 0;  // 0 OperatingPoint, 1 Zero, 2 User
    std::shared_ptr<Solver> solver;
    std::shared_ptr<Solver> dcSolver;
};

class Circuit : public Graph {
public:
    Circuit();
    ~Circuit() override;

    std::shared_ptr<Context> getContext() override { return context; }
    void setContext(const std::shared_ptr<MNAContext>& newContext) { context = newContext; }
    const std::shared_ptr<MNAContext>& getMNAContext() const { return context; }
    void setAnalysis(std::unique_ptr<Analysis> newAnalysis) { analysis = std::move(newAnalysis); }
    const Analysis* getAnalysis() const { return analysis.get(); }
    // Load time: the number of outputs follows the named output nodes.
    void setNumberOfOutputs(int number);

    // Load time or between blocks: the output arrays only grow.
    void setMaxBlockSize(int size) override;
    void setSamplingRate(scalar rate) override;
    // Audio thread, no allocation.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs,
                 size_t framesPerBuffer) override;
    // Load time: numbers the netlist, finds the start (operating point or zero), readies the solver.
    void init() override;
    bool isInitialized() const { return initialized; }
    // Samples whose solve failed (an exception or a value that is not a number) since init: each
    // repeated the previous sample.  Any thread.
    unsigned long long getFailedSamples() const { return failedSamples.load(std::memory_order_relaxed); }

    void doBypass(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer);

private:
    void freeOutputs();
    // Load time, after numbering: what the netlist itself gets wrong, named, before any solve.
    void checkNetlist(bool dc);

    std::shared_ptr<MNAContext> context;
    std::unique_ptr<Analysis> analysis;
    std::shared_ptr<std::vector<scalar>> inputs;
    std::vector<scalar> x;
    bool initialized = false;
    std::atomic<unsigned long long> failedSamples{0};
};

}  // namespace vrn
