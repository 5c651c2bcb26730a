#include "filters/Convolver.h"

#include <algorithm>
#include <cstring>

#include "engine/AlignedMemory.h"

namespace vrn {

Convolver::Convolver() : outputs(1, nullptr), meta(std::make_shared<BasicFilterMeta>()) {}

Convolver::~Convolver() { freeSamples(output); }

void Convolver::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
}

void Convolver::init(const std::string& filterName, const Properties& filterProperties,
                     std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    properties = filterProperties;
    context = filterContext.get();
    int size = 0;
    getProperty(properties, "MaxIRSize", size, toInt, VRNException("MaxIRSize is not defined. Convolver name=" + name));
    if (size < 1)
        throw InvalidArgumentException("MaxIRSize must be greater than or equal to 0. Convolver name=" + name +
                                       " MaxIRSize=" + toString(size));
    maxIRSize = static_cast<uint64_t>(size);
    outputs.assign(1, output);
}

void Convolver::propertyChanged(const std::string& propertyName, const std::shared_ptr<std::vector<scalar>>& values) {
    if (propertyName != "ImpulseResponse")
        throw InvalidArgumentException("Convolver: Invalid property. Name=" + propertyName);
    if (!values || values->empty()) throw InvalidArgumentException("Convolver: Invalid impulse response. IR is empty.");
    response = *values;
    irLength = std::min<uint64_t>(response.size(), maxIRSize);
    convolution.reset();
    if (maxBlockSize == 0) return;
    rebuild();
}

void Convolver::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("Convolver: Invalid maxBlockSize" + toString(size));
    if (size <= maxBlockSize) return;
    maxBlockSize = size;
    if (irLength != 0) rebuild();
}

// A new response makes a new convolution; a larger block size only a longer output array.
void Convolver::rebuild() {
    const uint64_t blocks = static_cast<uint64_t>(maxBlockSize);
    if (blocks > capacity) {
        freeSamples(output);
        output = nullptr;
        output = allocateSamples(static_cast<size_t>(blocks));
        std::fill(output, output + blocks, 0.0f);
        outputs.assign(1, output);
        capacity = blocks;
    }
    if (!convolution) convolution.reset(new PartitionedConvolution(response.data(), static_cast<size_t>(irLength)));
}

void Convolver::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    if (!isReady()) return;
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    convolution->process(in, output, framesPerBuffer);
}

void Convolver::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                        size_t framesPerBuffer) {
    process(inputs, framesPerBuffer);
    if (!isReady() || framesPerBuffer == 0 || filterOutputs.empty() || !filterOutputs[0]) return;
    if (filterOutputs[0] != output) std::memmove(filterOutputs[0], output, framesPerBuffer * sizeof(scalar));
}

scalar Convolver::process(scalar) { throw OperationNotSupportedException(""); }
scalar* Convolver::process(scalar*, size_t) { throw OperationNotSupportedException(""); }
void Convolver::process(const scalar*, scalar*, size_t) { throw OperationNotSupportedException(""); }

void Convolver::setSamplingRate(scalar) { reset(); }

void Convolver::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw OperationNotSupportedException("Convolver: Iteration is not supported.");
}

std::vector<scalar>& Convolver::getLastIterationResults() {
    throw OperationNotSupportedException("Convolver: getLastIterationResults is not supported.");
}

void Convolver::endIteration(int) { throw OperationNotSupportedException("Convolver: endIteration is not supported."); }

scalar* Convolver::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException("Convolver: Invalid output index: " + toString(index));
    return output;
}

void Convolver::reset() {
    if (convolution) convolution->clear();
}

}  // namespace vrn
