#pragma once
// Convolution of each block with one impulse response by a single FFT over the whole span
// (overlap-save with a hop of one block): no latency, at the price of a full-size transform on
// every block whatever its length.

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Buffer.h"
#include "engine/Element.h"

namespace vrn {

class Convolver : public Filter {
public:
    Convolver();
    ~Convolver() override;
    Convolver(const Convolver&) = delete;
    Convolver& operator=(const Convolver&) = delete;

    // Load time: "ImpulseResponse" installs a response (copied; only the first MaxIRSize
    // samples are used) and, once a block size is known, rebuilds the transforms.
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    using Filter::propertyChanged;
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    // Audio thread, no allocation.  Until both a response and a block size exist there is
    // nothing to run and the call returns at once.  A null input is silence.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar process(scalar in) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

    // Clears the history; the rate itself plays no part in a convolution.
    void setSamplingRate(scalar rate) override;

    // A block transform has no per-sample step: the iteration protocol is refused.
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;

    // Load time or between blocks: a larger block size rebuilds the transforms.
    void setMaxBlockSize(int size) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override { return outputs; }
    std::shared_ptr<ElementMeta> getMeta() override { return meta; }
    void reset() override;

    // The transform length for blocks of up to maxBlockSize and a response of irLength samples:
    // at least maxBlockSize - 1 + irLength, a multiple of 64 with no prime factor above 5.
    static uint64_t transformSize(uint64_t maxBlockSize, uint64_t irLength);

    uint64_t getMaxIRSize() const { return maxIRSize; }
    uint64_t getIRLength() const { return irLength; }
    uint64_t getFFTSize() const { return fftSize; }
    uint64_t getCapacity() const { return capacity; }

private:
    struct TransformPlan;
    void rebuild();

    uint64_t maxIRSize = 0;
    uint64_t irLength = 0;
    uint64_t fftSize = 0;
    uint64_t capacity = 0;
    // Spectra are N/2 + 1 complex bins, so the arrays hold N + 2 values.
    scalar* spectrum = nullptr;
    scalar* timeBuffer = nullptr;
    scalar* accumulator = nullptr;
    std::unique_ptr<Buffer> history;
    std::unique_ptr<TransformPlan> plan;
    scalar* output = nullptr;
    std::vector<scalar> response;
    std::vector<scalar*> outputs;
    std::shared_ptr<ElementMeta> meta;
};

}  // namespace vrn
