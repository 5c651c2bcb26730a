#pragma once
// Convolution of each block with one impulse response, with no latency: a block's output includes
// that block's input.  The arithmetic is a PartitionedConvolution, whose cost per sample hardly
// depends on the block length.

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Element.h"
#include "filters/PartitionedConvolution.h"

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

    // Load time or between blocks: a larger block size grows the output array; the convolution
    // and its past input stay.
    void setMaxBlockSize(int size) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override { return outputs; }
    std::shared_ptr<ElementMeta> getMeta() override { return meta; }
    void reset() override;

    uint64_t getMaxIRSize() const { return maxIRSize; }
    uint64_t getIRLength() const { return irLength; }
    // Whether a response and a block size are both in place, so that blocks run.
    bool isReady() const { return convolution != nullptr && capacity != 0; }
    // The longest transform in use; 0 until the convolver is ready or where the response is
    // short enough to be convolved directly.
    uint64_t getFFTSize() const { return isReady() ? convolution->largestTransform() : 0; }
    // The length of the output array: the largest block size so far.
    uint64_t getCapacity() const { return capacity; }

private:
    void rebuild();

    uint64_t maxIRSize = 0;
    uint64_t irLength = 0;
    uint64_t capacity = 0;
    std::unique_ptr<PartitionedConvolution> convolution;
    scalar* output = nullptr;
    std::vector<scalar> response;
    std::vector<scalar*> outputs;
    std::shared_ptr<ElementMeta> meta;
};

}  // namespace vrn
